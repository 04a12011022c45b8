"""usage: mqtt_test.py BIN [unittest argument...]: va_mqtt of BIN, a real broker and daemon."""

import json
import re
import signal
import socket
import ssl
import sys
import unittest
from datetime import datetime, timedelta
from pathlib import Path

import jinja2
import jsonschema
from lab import AREA, MASK, PATIENCE, PERIOD, ROOT, STORE, Lab, Program, Subscriber, wait_for

RULE = "&VideoSource0/Analytics0/"
EVENTS = "cameras/cam1/onvif-ej/"
AREA_TOPIC = EVENTS + "RuleEngine/FieldDetector/ObjectsInside/" + RULE + "ObjectDetection-O0"
LINE_TOPIC = EVENTS + "RuleEngine/LineDetector/Crossed/" + RULE + "CrossLine-C0"
COUNTER_TOPIC = EVENTS + "RuleEngine/CountAggregation/Counter/" + RULE + "CrossLine-C0"
TAMPER_TOPIC = EVENTS + "VideoSource/GlobalSceneChange/AnalyticsService/&VideoSource0"
MOTION_TOPIC = EVENTS + "VideoSource/MotionAlarm/&VideoSource0"
AVAILABLE = "cameras/cam1/va/available"
SCENE = "cameras/cam1/va/scene"
END = "cameras/end"
LOST = "cameras/cam1/va/lost"
STILL = "cameras/cam1/va/still"

# What begins a topic; which schema.
KINDS = (("cameras/cam1/onvif-mj/VideoAnalytics/Profile0/", "frame"),
         (LINE_TOPIC[:-1], "line"), (COUNTER_TOPIC[:-1], "counter"),
         (AREA_TOPIC[:-1], "area"), (TAMPER_TOPIC, "state"),
         (MOTION_TOPIC, "state"), ("cameras/cam1/va/track/", "track"),
         (SCENE, "scene"), (LOST, "lost"),
         *((f"homeassistant/{entity}/", f"discovery_{entity}")
           for entity in ("event", "binary_sensor", "sensor", "button")),
         (STILL, "still"), (AVAILABLE, "available"))


def kind_of(message):
    return next(kind for topic, kind in KINDS if message["topic"].startswith(topic))


def payload(message):
    return json.loads(message["payload"] or "{}")


def says(name, value):
    return lambda message: payload(message).get(name) == value


def is_inside(message):
    return payload(message).get("Data", {}).get("IsInside")  # None: it is not known


def time_of(message):
    event = payload(message)
    return datetime.fromisoformat(event.get("UtcTime", event.get("First", {}).get("UtcTime"))[:-1])


def schema_of(name):
    schema = json.loads((ROOT / "mqtt/topics.schema.json").read_text())
    return schema | {"$ref": f"#/$defs/{name}"}


class SchemaTest(unittest.TestCase):
    """What is right, and what is wrong as soon as this is put in its place."""

    TIME = "2026-01-01T00:00:00.000Z"
    RULE = {"VideoSource": "V", "AnalyticsConfiguration": "A", "Rule": "CrossLine-C0"}
    WHO = {"ObjectId": 7, "ClassTypes": "Moving HumanFace",
           "Objects": [{"ObjectId": 7, "Class": "Moving"}]}
    OBJECT = {"@ObjectId": 2 ** 40, "Appearance": {
        "Shape": {"BoundingBox": {"@left": -1, "@top": 0, "@right": 5, "@bottom": 9},
                  "CenterOfGravity": {"@x": 2.5, "@y": 4}},
        "Class": {"Type": [{"@Likelihood": 0.87, "#text": "HumanFace"}]}}}
    PLACES = {"Translate": {"@x": -1, "@y": 1}, "Scale": {"@x": 0.001, "@y": -0.002}}
    EMPTY = {"@UtcTime": TIME, "@Source": "fd"}
    TREE = {"Delete": [{"@ObjectId": 7}]}
    ENTITY = {"name": "Line 0", "unique_id": "va_a_line_0", "availability_topic": "a/va/available",
              "availability_template": "{{ value_json.State }}", "qos": 1,
              "device": {"identifiers": ["va_a"], "name": "a", "model": "m", "sw_version": "1"},
              "origin": {"name": "va_mqtt", "sw_version": "1"}}
    READ = ENTITY | {"state_topic": "a/b", "value_template": "{{ value_json }}"}

    TABLE = (
        ("frame", {"Frame": [EMPTY | {"Object": [OBJECT], "Transformation": PLACES,
                                      "ObjectTree": TREE}]},
         ("Frame.0.@Source", "VideoSource0"), ("Frame.0.Object", []), ("Frame.0.Object", None),
         ("Frame.0.Transformation", None), ("Frame.0.ObjectTree", []), ("Frame", []),
         ("Frame.0.ObjectTree.Delete", [7]), ("Frame.0.Object.0.@ObjectId", "7"),
         *(("Frame.0.Object.0.Appearance.Class.Type", wrong) for wrong in (
             "Moving", [], ["Face"], [{"#text": "Moving"}], ["Moving", "Static"],
             [{"@Likelihood": 87, "#text": "HumanFace"}], [{"Moving": 1}]))),
        ("frame", {"Frame": [EMPTY]}, ("Frame.0.Transformation", PLACES)),
        ("line", {"UtcTime": TIME, "Source": RULE, "Data": WHO | {
            "Count": 1, "Objects": [{"ObjectId": 7, "Class": "Static", "Crossing": "to left"}]}},
         ("Source.Rule", "CrossLine.C0"), ("Source.Rule", "event 1 bit 0"), ("Data.Count", "1"),
         ("Data.ObjectId", None), ("Data.ClassTypes", None), ("Data.ClassTypes", ["Moving"]),
         ("Data.ClassTypes", "Face"), ("Data.Objects", None), ("Data.Objects.0.Class", "Face"),
         ("Data.Objects.0.Crossing", None), ("Data", None), ("PropertyOperation", "Changed")),
        ("line", {"UtcTime": TIME, "Source": RULE | {"Rule": "event-1-bit-31"}, "Data": {}},
         ("Source.Rule", "event-1-bit-32")),
        ("counter", {"UtcTime": TIME, "Source": RULE, "Data": {"Count": 0}},
         ("Data.Count", -1), ("Data.Count", 1.5), ("Data.Count", None), ("Data.ObjectId", 7)),
        ("area", {"UtcTime": TIME, "Source": RULE, "Data": WHO | {"IsInside": True}},
         ("Data.IsInside", "true"), ("Data.IsInside", False), ("Data.IsInside", None),
         ("Data.ClassTypes", None), ("UtcTime", "2026-01-01T00:00:00Z")),
        ("state", {"UtcTime": TIME, "Source": {"Source": "V"}, "Data": {"State": True}},
         ("Data.State", "true"), ("Source.Source", None), ("Data.Rule", "x")),
        ("track", {"State": "Began", "ObjectId": 7, "Class": "HumanFace", "First": {
            "UtcTime": TIME, "BoundingBox": OBJECT["Appearance"]["Shape"]["BoundingBox"]}},
         ("Class", "Face"), ("State", "Ended"), ("Seconds", 1), ("ObjectId", -1)),
        ("lost", {"UtcTime": TIME, "Frames": 0, "Events": 0, "Results": 0, "Refused": 0},
         ("Refused", None), ("Refused", -1)),
        ("discovery_event", READ | {"event_types": ["crossed"]},
         ("value_template", '{"event_type": "crossed"}'), ("origin", None), ("qos", None),
         ("device.sw_version", None), ("event_types", None), ("state_topic", None),
         ("state_topic", "a/#"), ("unique_id", "va.a")),
        ("discovery_binary_sensor", READ | {"device_class": "motion"},
         ("device_class", None), ("state_class", "total_increasing")),
        ("discovery_sensor", READ | {"state_class": "total_increasing"},
         ("state_class", None), ("device_class", "timestamp"), ("entity_category", "config")),
        ("discovery_button", ENTITY | {"command_topic": "a/va/reconfig", "payload_press": "reconfig",
                                       "entity_category": "config"},
         ("command_topic", None), ("payload_press", ""), ("state_topic", "a")),
    )

    def test_refuses_what_is_wrong(self):
        for name, right, *wrongs in self.TABLE:
            validator = jsonschema.Draft202012Validator(schema_of(name))
            validator.validate(right)
            for path, value in wrongs:
                wrong = part = json.loads(json.dumps(right))
                *parents, last = [int(key) if key.isdigit() else key for key in path.split(".")]
                for key in parents:
                    part = part[key]
                part.pop(last) if value is None else part.update({last: value})
                self.assertFalse(validator.is_valid(wrong), f"{name} {path} {value}")


class MqttTest(unittest.TestCase):
    def setUp(self):
        self.lab = Lab(BIN)
        self.addCleanup(self.lab.close)
        self.broker = self.lab.start_broker()

    def check_against_schema(self, messages):
        for message in messages:
            if message["topic"] == END:
                continue
            name = kind_of(message)
            if message["payload"]:
                jsonschema.validate(payload(message), schema_of(name))
            self.assertEqual((message["qos"], "message-expiry-interval" in str(message)),
                             (0, True) if name == "frame" else (1, False))

    def wait_until_it_hears(self, subscriber):  # behind all that is retained
        tell = ("mosquitto_pub", *self.lab.tls("admin"), "-q", "1", "-t", END, "-m", "{}")
        wait_for(lambda: self.lab.run(*tell) or subscriber.messages(END), "the end")

    def retained_of(self, *filters):
        late = Subscriber(self.lab, "admin", END, *filters)
        self.wait_until_it_hears(late)
        late.kill()
        return {m["topic"]: m["payload"] for m in late.messages() if m["retain"]}

    def retained_topics(self):
        return self.retained_of("cameras/#")

    def wait_for_retained(self, topics):
        wait_for(lambda: set(self.retained_topics()) == topics, topics)

    def test_each_topic(self):
        viewer = Subscriber(self.lab, "viewer", "cameras/#")
        home = Subscriber(self.lab, "homeassistant", "homeassistant/#")
        publisher = self.lab.start_publisher()
        viewer.wait(AVAILABLE, says("Why", "waiting for the daemon"))
        daemon = self.lab.start_daemon()
        viewer.wait(AVAILABLE, says("State", "online"))

        # Who it was is found by results at most 150 ms apart, which a busy machine may not have.
        for topic, place in ((LINE_TOPIC, {"Crossing": "to left"}), (AREA_TOPIC, {})):
            data = payload(viewer.wait(topic, lambda m: "Objects" in str(m["payload"])))["Data"]
            self.assertEqual(data["Objects"],
                             [{"ObjectId": data["ObjectId"], "Class": "Moving"} | place])
        crossed = viewer.wait(LINE_TOPIC)
        inside = viewer.wait(AREA_TOPIC, lambda m: is_inside(m) and time_of(m) > time_of(crossed))
        viewer.wait(TAMPER_TOPIC, lambda m: payload(m)["Data"]["State"])
        viewer.wait(AREA_TOPIC, lambda m: is_inside(m) is False and time_of(m) > time_of(inside))
        track = payload(viewer.wait("track/7", says("State", "Ended")))
        viewer.wait("track/3", says("State", "Ended"))
        self.assertLess(*(track[end]["BoundingBox"]["@left"] for end in ("First", "Last")))
        viewer.wait("onvif-mj/VideoAnalytics/Profile0/fd")
        viewer.wait("/od", lambda m: "Object" not in payload(m)["Frame"][0])
        for state in (True, False):
            viewer.wait(MOTION_TOPIC, lambda m: payload(m)["Data"]["State"] is state, 1)
        frame = payload(viewer.wait("onvif-mj/VideoAnalytics/Profile0/od"))["Frame"][0]
        centre = frame["Object"][0]["Appearance"]["Shape"]["CenterOfGravity"]
        scale, shift = (frame["Transformation"][part] for part in ("Scale", "Translate"))
        x, y = (centre[axis] * scale[axis] + shift[axis] for axis in ("@x", "@y"))
        self.assertEqual((-1 < x < 1, round(y, 5)), (True, 0.5))  # a quarter from the top

        self.wait_for_retained({AREA_TOPIC, COUNTER_TOPIC, TAMPER_TOPIC, MOTION_TOPIC, SCENE,
                                LOST, AVAILABLE})
        wait_for(lambda: is_inside({"payload": self.retained_topics()[AREA_TOPIC]}), "inside")
        home.wait("/since/config")  # the last one by name
        entities = {m["topic"].split("/")[3]: payload(m) for m in home.messages() if m["payload"]}
        self.assertEqual({name: entity["state_topic"] for name, entity in entities.items()},
                         {"area_0": AREA_TOPIC, "line_0": LINE_TOPIC, "tamper": TAMPER_TOPIC,
                          "line_0_count": COUNTER_TOPIC, "motion": MOTION_TOPIC,
                          "lost": LOST, "since": AVAILABLE})
        self.assertEqual({entity["availability_topic"] for entity in entities.values()},
                         {AVAILABLE})
        self.check_templates(viewer, entities)

        # Another line, a mask and no area in the store, which the daemon has not read.
        store = STORE.replace("C0", "C1") + MASK
        self.lab.write("store", store)
        before = len(viewer.messages(LINE_TOPIC))
        wait_for(lambda: len(viewer.messages(LINE_TOPIC)) >= before + 2, "two more crossings")
        told = [(m["topic"], payload(m)["Data"]["Count"]) for m in viewer.messages("CrossLine-C0")
                if "Count" in m["payload"]]  # unknown until what is retained is read
        first = told[0][1]
        self.assertEqual(told, [(topic, count) for count in range(first, first + len(told))
                                for topic in (LINE_TOPIC, COUNTER_TOPIC)][1:len(told) + 1])
        self.assertFalse([m for m in viewer.messages(SCENE) if "C1" in m["payload"]])
        self.lab.reconfigure(store)
        viewer.wait(SCENE, lambda m: "C1" in m["payload"] and "non-detection" in m["payload"]
                    and "area" not in m["payload"])
        viewer.wait(LINE_TOPIC[:-1] + "1")
        for entity in ("area_0", "line_0", "line_0_count"):
            home.wait(entity, lambda m: not m["payload"] and not m["retain"])
        self.wait_for_retained({COUNTER_TOPIC[:-1] + "1", TAMPER_TOPIC, MOTION_TOPIC, SCENE,
                                LOST, AVAILABLE})
        self.check_against_schema(viewer.messages() + home.messages())

        daemon.kill()
        viewer.wait(AVAILABLE, says("Why", "the daemon has gone"), -1)
        # The next daemon's frames have another size, which is not known while it writes no status.
        status = Path(self.lab.folder, "run/status")
        status.unlink(missing_ok=True)
        status.mkdir()
        tracks, frames = (len(viewer.messages(part)) for part in ("track/", "/od"))
        self.lab.write("store", "Properties.Image.ProfileMode=720P" + STORE + AREA)
        daemon = self.lab.start_daemon()
        viewer.wait("track/", begin=tracks + 1)
        self.assertLess(len(viewer.messages("/od")), frames + 2)  # one of the last daemon's waited
        status.rmdir()
        viewer.wait("/od", lambda m: f'"@x":{2 / 1280}' in m["payload"])
        # Areas that a publisher leaves behind are not known again before a daemon is there.
        wait_for(lambda: AREA_TOPIC in self.retained_topics(), "area")
        for program in (daemon, publisher):
            program.kill()
        will = viewer.wait(AVAILABLE, says("Why", "the connection was lost"))
        self.check_against_schema([will])
        self.assertEqual((payload(will)["State"], "Since" in payload(will)), ("offline", False))
        left = self.retained_topics()
        self.assertEqual(left[AVAILABLE], will["payload"])
        publisher = self.lab.start_publisher()
        wait_for(lambda: AREA_TOPIC not in self.retained_topics(), "no area")
        self.assertIn("1280", self.retained_topics()[SCENE])
        # Counters go on, also when the publisher ends before it knows the lines.
        publisher.end()
        count = payload({"payload": left[COUNTER_TOPIC]})["Data"]["Count"]
        told = len(viewer.messages(LINE_TOPIC))
        publisher = self.lab.start_publisher()
        publisher.wait_for("broker: connected")
        self.lab.start_daemon()
        crossed = viewer.wait(LINE_TOPIC, lambda m: "Count" in payload(m)["Data"], told)
        self.assertGreater(payload(crossed)["Data"]["Count"], count)
        # What has been published, and nothing else, is taken back.
        publisher.end()
        self.assertEqual({m["topic"] for m in viewer.messages() if not m["payload"]},
                         {COUNTER_TOPIC, AREA_TOPIC, COUNTER_TOPIC[:-1] + "1"})
        self.lab.start_publisher("--forget", "--username", "admin", "--password-file",
                                 "admin.password", "--port", str(self.lab.reader_port))
        wait_for(lambda: not self.retained_of("cameras/#", "homeassistant/#"), "nothing")

    def check_templates(self, viewer, entities):
        """By the engine of Home Assistant."""
        def rendered(name, topic):
            value = json.loads(viewer.messages(topic)[-1]["payload"])
            return jinja2.Template(entities[name]["value_template"]).render(value_json=value)

        for topic in (LINE_TOPIC, COUNTER_TOPIC):  # unknown until what is retained is read
            viewer.wait(topic, lambda m: payload(m)["Data"].get("Count", 0) > 0)
        event = json.loads(rendered("line_0", LINE_TOPIC))
        self.assertEqual((event["event_type"], event["time"][-1]), ("crossed", "Z"))
        self.assertIn("Count", event)
        for name in ("area_0", "tamper", "motion"):
            self.assertIn(rendered(name, entities[name]["state_topic"]), ("ON", "OFF"))
        self.assertGreater(int(rendered("line_0_count", COUNTER_TOPIC)), 0)
        datetime.fromisoformat(rendered("since", AVAILABLE)[:-1])

    def test_what_a_supervisor_is_told(self):
        self.lab.write("scene", "")  # nothing comes
        Path(self.lab.folder, "run/status").mkdir()
        self.lab.start_daemon()
        address = self.lab.folder + "/notify"
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as supervisor:
            supervisor.bind(address)
            publisher = self.lab.start_publisher(NOTIFY_SOCKET=address, WATCHDOG_USEC="60000000")
            publisher.wait_for("cannot write its status")
            wait_for(lambda: "online" in self.retained_topics().get(AVAILABLE, ""), "online")
            self.broker.wait_for("Received UNSUBSCRIBE from cam1")  # else it hears itself
            self.assertEqual(publisher.end(), 0)
            self.broker.wait_for(r"(?s)as cam1 \(p5, c0, k15, .*Client cam1 disconnected\.")
            told = [supervisor.recv(9999, socket.MSG_DONTWAIT)]
            while not told[-1].startswith(b"STOPPING=1\n"):
                told.append(supervisor.recv(9999, socket.MSG_DONTWAIT))
        self.assertRegex(told[0], rb"^READY=1\nSTATUS=broker: .*\nWATCHDOG=1\n$")
        self.assertRegex(told[-2], b"broker: connected.*; the daemon cannot write its status\\n")
        self.assertIn("va_mqtt has ended", self.retained_topics()[AVAILABLE])

    def test_stills(self):
        def put(content):
            new = Path(self.lab.folder, "new.jpg")
            new.write_bytes(b"\xff\xd8" + content + b"\xff\xd9")
            new.rename(new.with_name("still.jpg"))

        def subscribe(*more):
            return Program(self.lab, f"stills{len(self.lab.programs)}", "mosquitto_sub",
                           *self.lab.tls("viewer"), "-F", "%q %r %x", "-t", STILL, *more)

        def retained():
            late = subscribe("-C", "1", "-W", "5")
            late.child.wait(PATIENCE)
            return re.findall(r"^\d 1 (\w+)$", late.text(), re.MULTILINE)

        for topic in (STILL, COUNTER_TOPIC[:-1] + "2", AREA_TOPIC[:-1] + "2"):
            self.lab.run("mosquitto_pub", *self.lab.tls("cam1"), "-r", "-t", topic, "-m", "earlier")
        put(b"lay there")
        viewer = subscribe()
        viewer.wait_for(r"\d 1 \w+\n")
        options = ("--still", "still.jpg", "--still-size", "100", "--still-interval")
        publisher = self.lab.start_publisher(*options, "1")
        viewer.wait_for(r"\d 0 \n")  # that of an earlier run is taken back
        publisher.wait_for("broker: connected")
        put(b"one")
        viewer.wait_for("0 0 ffd86f6e65ffd9\n")
        put(bytes(97))
        publisher.wait_for("still.jpg: larger than 100 bytes")
        self.assertEqual(retained(), ["ffd86f6e65ffd9"])
        self.broker.kill()
        self.lab.run("mosquitto_passwd", "-b", "passwords-cameras", "cam1", "another one")
        self.broker = self.lab.start_broker()
        publisher.wait_for("waiting for .*Not authorized")  # which ends it at its start
        self.lab.write("cam1.password", "another one\r\n")
        publisher.wait_for(r"(?s)broker: connected.*broker: connected")
        self.assertEqual(set(self.retained_topics()) - {STILL},
                         {TAMPER_TOPIC, MOTION_TOPIC, LOST, AVAILABLE,
                          COUNTER_TOPIC[:-1] + "2"})  # of which no daemon has said that it is none
        put(bytes(96))
        wait_for(lambda: retained() == ["ffd8" + 96 * "00" + "ffd9"], "the next still")
        self.assertNotIn(b"lay there".hex(), viewer.text())
        self.assertEqual(publisher.end(), 0)
        self.assertEqual(retained(), [])
        self.assertEqual(publisher.text().count("larger"), 1)
        self.lab.start_publisher(*options, "3600", "--qos", "2").wait_for("connected")
        self.broker.wait_for(r"as cam1 \(p5, c1,")  # a session would mistake new ones for old ones
        put(b"two")
        wait_for(lambda: retained() == ["ffd874776fffd9"], "one more")
        put(b"three")  # too soon
        for _ in range(2):
            self.assertEqual(retained(), ["ffd874776fffd9"])

    def test_no_event_is_lost_when_the_broker_goes(self):
        self.lab.start_daemon()
        viewer = Subscriber(self.lab, "viewer", "cameras/#", session="keeper")
        publisher = self.lab.start_publisher("--host", "localhost, localhost",  # soon impatient
                                             "--keep-alive", "60")
        viewer.wait(LINE_TOPIC)
        self.broker.child.send_signal(signal.SIGSTOP)
        publisher.wait_for("waiting for localhost:.* it does not answer")
        self.broker.kill()
        self.wait_for_report(publisher, r"waiting \d\d")
        self.lab.reconfigure(STORE)  # the area goes, whose events are kept
        self.wait_for_report(publisher, r"frames sent \d+, dropped [1-9]")
        self.lab.start_broker()
        back = datetime.utcnow()
        before = viewer.messages()
        viewer.kill()
        viewer = Subscriber(self.lab, "viewer", "cameras/#", session="keeper")
        viewer.wait("onvif-mj", lambda m: payload(m)["Frame"][0]["@UtcTime"] > back.isoformat())
        viewer.wait(LOST, lambda m: payload(m)["Frames"] > 0)
        viewer.wait(AVAILABLE, lambda m: not m["retain"])  # told again: it may have forgotten all
        for part in (LINE_TOPIC, "va/track"):
            viewer.wait(part, lambda m: time_of(m) > back)
            times = sorted({time_of(m) for m in before + viewer.messages() if part in m["topic"]
                            and payload(m).get("Class") != "HumanFace"})  # twice is allowed
            gap = max(later - time for time, later in zip(times, times[1:]))
            self.assertLess(gap, timedelta(seconds=1.5 * PERIOD), (part, times))
        self.assertEqual(payload(viewer.messages(LOST)[-1])["Events"], 0)
        wait_for(lambda: AREA_TOPIC not in self.retained_topics(), "no area")

    def test_the_newest_events_are_kept(self):
        viewer = Subscriber(self.lab, "viewer", "cameras/#", session="keeper")
        wait_for(lambda: "keeper" in self.broker.text(), "subscription")
        viewer.end()
        self.broker.kill()
        self.write_capture()
        publisher = self.lab.start_publisher("--keep", "20", "-r", "capture", "--pace", "99")
        publisher.wait_for("broker: waiting")  # for half a second at least: 49 of the capture
        self.lab.start_broker()
        viewer = Subscriber(self.lab, "viewer", "cameras/#", session="keeper")
        lost = payload(viewer.wait(LOST, lambda m: payload(m)["Events"] > 40))
        self.assertEqual([lost[name] for name in ("Frames", "Events", "Results")], [0, 41, 2])
        viewer.wait("track/30")
        messages = [m for m in viewer.messages() if not m["retain"]]
        tracks = [payload(m) for m in messages if "track" in m["topic"]]
        kept = [(track["ObjectId"], track["State"]) for track in tracks]
        self.assertEqual(kept, [(number, "Ended") for number in range(11, 31)])
        self.assertNotEqual(kind_of(messages[0]), "track")  # states first
        self.assertTrue(payload(viewer.messages(TAMPER_TOPIC)[-1])["Data"]["State"])

    def test_events_survive_in_a_spool(self):
        self.broker.end()
        self.write_capture()
        spool = Path(self.lab.folder, "spool")
        publisher = self.lab.start_publisher("--spool", "spool", "-r", "capture", "--pace", "99")
        wait_for(lambda: spool.exists() and spool.read_text().count("Ended") == 30, "the spool")
        publisher.kill()
        publisher = self.lab.start_publisher("--spool", "spool", "--keep", "50")
        publisher.wait_for("ta: waiting")
        self.assertEqual(publisher.end(), 0)
        publisher.wait_for("50 events wait in spool")  # with the state now, behind the alarm
        with spool.open("a") as file:  # that somebody is in an area, which is no longer there
            file.write(json.dumps({"topic": AREA_TOPIC, "payload": "{}", "retained": True}) + "\n")
        self.lab.start_broker()
        viewer = Subscriber(self.lab, "viewer", "cameras/#")
        self.wait_until_it_hears(viewer)
        publisher = self.lab.start_publisher("--spool", "spool")
        viewer.wait("track/30", says("State", "Ended"))
        tracks = [m["topic"].split("/")[-1] for m in viewer.messages("track/")]
        self.assertEqual(tracks, [str(number) for number in (*range(13, 31), *range(1, 31))])
        wait_for(lambda: spool.stat().st_size == 0, "an empty spool")
        wait_for(lambda: AREA_TOPIC not in self.retained_topics(), "no area")
        self.assertEqual(publisher.end(), 0)
        self.assertNotIn("events", publisher.text())
        self.assertFalse(payload(viewer.messages(TAMPER_TOPIC)[-1])["Data"]["State"])

    def test_what_a_broker_says_is_reported(self):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.lab.folder + "/broker.crt", self.lab.folder + "/broker.key")
        context.load_verify_locations(self.lab.folder + "/broker.crt")
        context.verify_mode = ssl.CERT_REQUIRED
        machine = Path("/etc/machine-id")
        part = r"-[0-9a-f]{8}" if machine.exists() and machine.read_text() else ""
        with context.wrap_socket(socket.create_server(("127.0.0.1", 0)), True) as server:
            server.settimeout(PATIENCE)
            options = ("--port", str(server.getsockname()[1]), "--qos", "0",
                       "--cert", "broker.crt", "--key", "broker.key")
            publisher = self.lab.start_publisher(*options)
            # A version that is refused is not tried again, one that is not answered is.
            for version, answer in ((5, b"\x20\3\0\x97\0"), (5, b"\x20\2\0\1"),
                                    (4, b"\x20\2\0\3"), (5, b"\x20\3\0\0\0\xe0\1\x8e"),
                                    (5, b""), (4, b"\x20\2\0\0"),
                                    (5, b"\x20\2\0\1"), (4, b"\x20\2\0\0")):
                with server.accept()[0] as client:
                    request = client.recv(1) + client.recv(999)
                    self.assertEqual(request[request.index(b"MQTT") + 4], version)
                    client.sendall(answer)
                    if version == 4 and answer[-1] == 0:  # what was not read to its end
                        self.assertIn(b"onvif-ej/#", client.recv(999))
            publisher.wait_for(r"(?s)Quota exceeded\n.*Session taken over\n.*connected to "
                               r".*by MQTT 3.1.1\n.*; has another client the id "
                               rf"va_mqtt-cameras/cam1{part}\?\n")
            publisher.kill()
            forgetful = self.lab.start_publisher(*options, "--forget")
            with server.accept()[0] as client:
                client.sendall(b"\x20\3\0\0\0" +
                               b"".join(b"\x90\4\0%c\0\x87" % number for number in range(1, 5)))
                forgetful.wait_for("the account may not read what is retained")
            self.assertEqual(forgetful.child.wait(PATIENCE), 1)

    def test_frames_do_not_wait_in_a_slow_network(self):
        def dropped():
            publisher.child.send_signal(signal.SIGUSR1)
            return re.search("broker: connected to .*; frames sent .*, dropped [1-9]",
                             publisher.text())

        with socket.create_server(("127.0.0.1", 0)) as server:
            server.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)  # as little as possible
            publisher = Program(self.lab, "slow", self.lab.bin / "va_mqtt", "--directory", "run",
                                "--port", str(server.getsockname()[1]), "--rate", "100")
            with server.accept()[0] as client:
                client.sendall(b"\x20\3\0\0\0")
                for text in ("connected to", "ta: waiting"):
                    publisher.wait_for(text)
                self.lab.start_daemon()
                wait_for(dropped, "frames that are not sent")

    def test_what_the_broker_refuses_is_counted(self):
        admin = Subscriber(self.lab, "admin", "cameras/#")
        publisher = self.lab.start_publisher("--host", "no.invalid, localhost",
                                             "--prefix", "cameras/cam2", "--discovery", "")
        publisher.wait_for("broker: refuses cameras/cam2/.*: Not authorized")
        publisher.child.send_signal(signal.SIGUSR1)
        publisher.wait_for("events sent 0, dropped 0, refused [1-9]")
        publisher.wait_for("broker: connected to localhost")
        self.assertEqual(publisher.end(), 0)
        self.assertEqual(publisher.text().count("broker: refuses"), 1)
        self.assertEqual(admin.messages(), [])

    def test_the_daemon_reads_its_settings_when_it_may_be_told(self):
        viewer = Subscriber(self.lab, "viewer", "cameras/#")
        old = "homeassistant/event/va_cameras_cam1/line_9/config"
        tell = ("mosquitto_pub", *self.lab.tls("homeassistant"), "-q", "1", "-m", "reconfig", "-t")
        for topic in (old, "cameras/cam1/va/reconfig"):  # a command that lay there is none
            self.lab.run(*tell, topic, "-r")
        first = self.lab.start_publisher()
        first.wait_for("broker: connected")
        first.kill()
        publisher = self.lab.start_publisher("--allow", "reconfig")
        self.lab.start_daemon()
        viewer.wait(SCENE)
        wait_for(lambda: old not in self.retained_of("homeassistant/#"), "the old line's end")
        self.lab.write("store", STORE)
        self.lab.run(*tell, "cameras/cam1/va/reconfig")
        viewer.wait(SCENE, lambda m: "area" not in m["payload"])
        publisher.wait_for("the daemon has read its settings again")
        self.assertEqual(publisher.text().count("is asked"), 1)
        self.assertNotIn("was lost", viewer.text())  # it was back soon enough

    def test_what_cannot_be_used_is_refused(self):
        self.lab.write("wrong.password", "wrong\n")
        self.lab.write("open.password", "cam1 secret\n", mode=0o644)
        self.lab.write("group.password", "cam1 secret\n", mode=0o620)
        self.lab.write("strange.conf", "port = 1883\nports = 1883\n")
        self.lab.write("zero.conf", "prefix = a\0b\n")
        table = (
            (["--password-file", "wrong.password"], 1, "localhost:.*Not authorized"),
            (["--password-file", "open.password"], 1, "open to others"),
            (["--password-file", "group.password"], 1, "open to others"),
            (["--password-file", "none"], 1, "none: No such file"),
            (["--cafile", "other.crt"], 1, "localhost:.*certificate verify failed"),
            (["--cafile", "cam1.password"], 1, "Unable to load CA"),
            (["--host", "127.0.0.1"], 1, "127.0.0.1:.*host name verification failed"),
            (["--settings", "strange.conf"], 2, "strange.conf:2: there is no setting ports"),
            (["--settings", "zero.conf"], 2, "zero.conf:1: holds a zero byte"),
            (["--settings", "/dev/zero"], 2, "too large"),
            (["--host", "a,,b"], 2, "a host is empty"),
            (["--forget", "--prefix", "cameras/cam2"], 1, "may not take back"),
            (["--spool", "/dev/null"], 1, "is no file"),
            (["--prefix", "a/#"], 2, "no prefix"),
            (["--rate", "x"], 2, "no number of frames"),
            (["--still-size", "4000001"], 2, "no number of bytes"),
        )
        for arguments, status, text in table:
            with self.subTest(arguments):
                publisher = self.lab.start_publisher(*arguments)
                publisher.wait_for(text)
                self.assertEqual(publisher.child.wait(10), status)

    def test_what_is_reported_at_the_start(self):
        account = ("--username", "cam1", "--password-file", "cam1.password")
        for arguments, text in (((), "connecting to localhost:1883"),
                                (("--cafile", "ca.crt"), "connecting to localhost:8883"),
                                (("--prefix", "a.b"), '"a.b" has a dot or a blank'),
                                (("--host", "127.no.invalid", *account), "as plain text"),
                                (("--host", "127.9.9.9", *account), "to 127.9.9.9:1883\n")):
            publisher = Program(self.lab, "reports", self.lab.bin / "va_mqtt", *arguments)
            publisher.wait_for(text)
            self.assertEqual("plain text" in publisher.text(), "plain text" in text)
            publisher.kill()
        # One connection is made by the system, to a program that does not answer; no other one.
        with socket.create_server(("", 0), backlog=0) as server:
            publisher = Program(self.lab, "silence", self.lab.bin / "va_mqtt", "--keep-alive", "60",
                                "--host", "127.0.0.1, 127.0.0.2",
                                "--port", str(server.getsockname()[1]))
            for host in ("127.0.0.1", "127.0.0.2"):
                publisher.wait_for(f"waiting for {host}:.* it does not answer")

    def write_capture(self):
        # Thirty objects appear; two results are missing; tampering begins and lasts; they leave.
        def objects(result):
            return [word for i in range(1, 31) for word in (i, 3, 10, 5, 4, 4, 12, 7, result, 0)]

        self.lab.write_capture([(0, b"od", objects(1)), (100, b"od", objects(4)),
                                *((1000 * i, b"ta", [1, 0, 0, 0]) for i in range(1, 9999))])

    def wait_for_report(self, publisher, pattern):
        def reported():
            publisher.child.send_signal(signal.SIGUSR1)
            return re.search(pattern, publisher.text())
        wait_for(reported, pattern)


if __name__ == "__main__":
    BIN = sys.argv.pop(1)
    unittest.main()
