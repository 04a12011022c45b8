"""examples/history with a broker, a publisher and a database that are killed, and its queries."""

import json
import os
import shutil
import signal
import subprocess
import sys
import unittest
from pathlib import Path

import psycopg

sys.path.append(str(Path(__file__).resolve().parents[1] / "mqtt"))
from lab import PATIENCE, ROOT, Lab, Program, wait_for  # noqa: E402

POSTGRES = "/usr/lib/postgresql/15/bin"
EXAMPLE = ROOT / "examples/history"
CROSSED = "onvif-ej/RuleEngine/LineDetector/Crossed/&V/A/CrossLine-C0"
COUNTER = "onvif-ej/RuleEngine/CountAggregation/Counter/&V/A/CrossLine-C0"
MARCH = ("-v", "begin=2026-03-01 08:00", "-v", "end=2026-03-02")
ANSWERS = """\
time,rule,object,class,crossing
2026-03-01 08:00:00+00,CrossLine-C0,1,Moving,to left
2026-03-01 08:00:00+00,CrossLine-C0,2,Static,to right
2026-03-01 08:59:59.999+00,CrossLine-C0,,,
2026-03-01 10:00:00+00,CrossLine-C0,1,Moving,to left
hour,rule,counted,stored
2026-03-01 08:00:00+00,CrossLine-C0,2,3
2026-03-01 10:00:00+00,CrossLine-C0,7,1
2026-03-01 11:00:00+00,CrossLine-C0,3,
camera,hour,counted
cameras/cam3,2026-03-01 07:00:00+00,0
cameras/cam3,2026-03-01 08:00:00+00,2
cameras/cam3,2026-03-01 10:00:00+00,7
cameras/cam3,2026-03-01 11:00:00+00,3
camera,began,ended,length,why
cameras/cam3,2026-03-01 09:00:00+00,2026-03-01 09:01:30.5+00,00:01:30.5,silent
camera,object,class,came,went,seconds
cameras/cam3,8,Moving,2026-03-01 08:00:00+00,2026-03-01 08:01:40.5+00,100.5
cameras/cam3,7,HumanFace,2026-03-01 08:00:00+00,2026-03-01 08:00:20+00,20
"""


def crossed(time, *objects, rule="CrossLine-C0"):
    data = {"ObjectId": objects[0]["ObjectId"], "Objects": objects} if objects else {}
    return json.dumps({"UtcTime": time, "Source": {"Rule": rule}, "Data": data})


def crosser(number, kind="Moving", crossing="to left"):
    return {"ObjectId": number, "Class": kind, "Crossing": crossing}


def counter(time, count):
    return f'{{"UtcTime":"{time}","Source":{{"Rule":"CrossLine-C0"}},"Data":{{"Count":{count}}}}}'


def ended(number, kind, went, seconds):
    return json.dumps({"State": "Ended", "ObjectId": number, "Class": kind, "Seconds": seconds,
                       "First": {"UtcTime": "2026-03-01T08:00:00.000Z"}, "Last": {"UtcTime": went}})


class HistoryTest(unittest.TestCase):
    def setUp(self):
        self.lab = lab = Lab(sys.argv[1])
        self.addCleanup(lab.close)
        for account in ("cam2", "cam3"):
            lab.run("mosquitto_passwd", "-b", "passwords-cameras", account, f"{account} secret")
        lab.write("conf.d/save.conf", "")  # not all of it for each of thousands of messages
        lab.start_broker()
        self.environment = os.environ | {"PGHOST": f"{lab.folder}/pg", "PGUSER": "postgres",
                                         "PGDATABASE": "postgres", "PGTZ": "UTC"}
        self.as_postgres = []
        Path(lab.folder, "pg").mkdir()
        if os.geteuid() == 0:  # which PostgreSQL refuses to be
            self.as_postgres = ["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups"]
            shutil.chown(f"{lab.folder}/pg", "postgres", "postgres")
            Path(lab.folder).chmod(0o755)
        lab.run(*self.as_postgres, f"{POSTGRES}/initdb", "-N", "-A", "trust", "-U", "postgres",
                "-D", "pg/data")
        self.start_database()
        self.addCleanup(lambda: self.database.end(signal.SIGQUIT))
        self.psql("schema.sql")
        self.start_history()

    def start_database(self):
        self.database = Program(self.lab, "database", *self.as_postgres, f"{POSTGRES}/postgres",
                                "-D", "pg/data", "-k", f"{self.lab.folder}/pg", "-c",
                                "listen_addresses=")
        self.database.wait_for("ready to accept connections")

    def start_history(self):
        self.history = Program(
            self.lab, "history", EXAMPLE / "history.py", "cameras/+", "--port",
            str(self.lab.reader_port), "--cafile", "ca.crt", "--username", "viewer",
            "--password-file", "viewer.password",
            env=self.environment)
        self.history.wait_for("Accepted")

    def connect(self):
        return psycopg.connect(host=self.environment["PGHOST"], user="postgres", autocommit=True)

    def ask(self, query):
        with self.connect() as connection:
            return connection.execute(query).fetchall()

    def wait(self, query, *rows):
        wait_for(lambda: self.ask(query) == list(rows), f"{rows} from {query}")

    def psql(self, file, *arguments):
        return subprocess.run(["psql", "-X", "-q", "-v", "ON_ERROR_STOP=1", "--csv", *arguments,
                               "-f", EXAMPLE / file], env=self.environment, check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def publish(self, account, part, *payloads):
        subprocess.run(["mosquitto_pub", "-q", "1", "-l", *self.lab.tls(account), "-t",
                        f"cameras/{account}/{part}"], cwd=self.lab.folder, check=True, text=True,
                       input="".join(f"{payload}\n" for payload in payloads), timeout=PATIENCE)

    def test_every_event_once(self):
        """Killed while the broker's messages are here and not yet stored, then the database."""
        bad = ["", "{", "[]", "\\u0000", "[" * 100000, crossed("tomorrow, maybe"), "\x7f",
               crossed("2020-01-01T00:00:00Z", rule="x" * 5000),
               crossed("2020-01-01T00:00:00Z", crosser("seven")),
               crossed("2020-01-01T00:00:00Z", crosser(7, "\0"))]
        sent = 0
        for end, restart in ((self.history.kill, self.start_history),
                             (lambda: self.database.end(signal.SIGQUIT), self.start_database)):
            lock = self.connect()
            lock.execute("BEGIN; LOCK TABLE events IN EXCLUSIVE MODE")
            # Some twice, as after a broken connection of the publisher.
            self.publish("cam2", CROSSED, *bad, *(
                crossed("2020-01-01T00:00:00Z", crosser(n))
                for n in range(max(sent - 100, 0), sent + 3000)))
            sent += 3000
            wait_for(lambda: self.ask("SELECT FROM pg_locks WHERE NOT granted"),
                     "a store() that waits")
            end()
            lock.close()  # a commit that nobody waits for follows, if there still is a database
            restart()
        self.wait("SELECT count(*), count(DISTINCT object), max(object) FROM events",
                  (sent, sent, sent - 1))
        self.wait("SELECT count(DISTINCT payload) FROM unreadable", (len(bad) - 1,))

    def test_queries(self):
        times = [f"2026-03-01T{time}Z" for time in ("08:00:00.000", "08:59:59.999", "10:00:00.000")]
        self.publish("cam3", CROSSED,
                     crossed(times[0], crosser(1), crosser(2, "Static", "to right")),
                     crossed(times[1]), crossed(times[2], crosser(1)))
        self.publish("cam3", COUNTER, *map(counter, *zip(
            ("2026-03-01T07:59:00Z", 100), (times[0], 101), (times[1], 102), (times[0], 101),
            (times[2], 109), ("2026-03-01T11:00:00Z", 3))))
        self.publish("cam3", "va/track/7", ended(7, "HumanFace", "2026-03-01T08:00:20.000Z", 20))
        self.publish("cam3", "va/track/8", ended(8, "Moving", "2026-03-01T08:01:40.500Z", 100.5))
        states = [{"State": state, "Since": f"2026-03-01T{since}Z", "Why": why}
                  for state, since, why in (
                      ("online", "07:00:00", None), ("offline", "09:00:00", "silent"),
                      ("offline", "09:00:30", "gone"), ("online", "09:01:30.500", None))]
        self.publish("cam3", "va/available", *map(json.dumps, states))
        self.wait("SELECT count(*) FROM availability", (3,))
        self.maxDiff = None
        self.assertEqual(self.psql("queries.sql", "-v", "camera=cameras/cam3", *MARCH), ANSWERS)

        # A connection that is lost and regained: neither message says when.
        self.publish("cam3", "va/available", '{"State":"offline"}')
        self.wait("SELECT count(*) FROM availability", (4,))
        self.publish("cam3", "va/available", json.dumps(states[-1]))
        self.wait("SELECT count(*) FROM availability", (5,))
        now = self.psql("queries.sql", "-v", "camera=", "-v", "begin=yesterday", "-v",
                        "end=tomorrow")
        self.assertRegex(now, r"cameras/cam3,[-0-9]+ [^,]+,[^,]+,00:00:0\d\.\d+,\n")

    def test_what_va_mqtt_says(self):
        self.lab.start_daemon()
        publisher = self.lab.start_publisher()
        wait_for(lambda: {kind for kind, in self.ask("SELECT kind FROM events")} >= {
            "LineDetector", "FieldDetector", "GlobalSceneChange", "TrackBegan", "TrackEnded"},
            "events of all kinds")
        self.wait("SELECT DISTINCT rule FROM counts", ("CrossLine-C0",))
        publisher.end()
        self.lab.start_publisher()
        self.wait("SELECT state FROM availability ORDER BY number",
                  ("online",), ("offline",), ("online",))
        self.assertEqual(self.ask("SELECT * FROM unreadable"), [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
