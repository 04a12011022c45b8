"""usage: cluster_test.py BIN [unittest argument...]: va_mqtt of BIN and three nats-server as
packaging/nats/ sets them up, of which one is killed."""

import json
import re
import shutil
import sys
import unittest
import urllib.request
from collections import defaultdict

from lab import ROOT, Lab, Program, free_port, wait_for

NODES = {f"nats{i}": f"127.0.0.{i}" for i in (1, 2, 3)}
CAMERAS = [f"camera{i}" for i in range(1, 21)]
STEP = 0.25  # seconds from one event of a camera to the next
EVENTS = 80


class Cluster(Lab):
    def _make_certificates(self):
        names = ",".join(f"IP:{address}" for address in NODES.values())
        self.run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                 "-subj", "/CN=nats", "-addext", f"subjectAltName={names}",
                 "-keyout", "node.key", "-out", "node.crt")
        shutil.copy(f"{self.folder}/node.crt", f"{self.folder}/ca.crt")  # signed by itself

    def _configure_broker(self):
        """As packaged, but for places, addresses and ports."""
        packaged = ROOT / "packaging/nats"
        self.http = free_port()
        self.write("password", "PASSWORD\n")
        users, camera, end = re.split(r"(  # A camera .*  }\n)", (packaged / "users.conf").read_text(),
                                      flags=re.DOTALL)
        self.write("users.conf", "".join(
            [users, *(camera.replace("camera1", name) for name in CAMERAS), end]))
        changes = {f"//{name}:": f"//{address}:" for name, address in NODES.items()}
        changes |= {"include nats/": "include ", "/etc/nats/": "", "8883": str(self.port),
                    "4222": str(free_port()), "6222": str(free_port()), "8222": str(self.http)}
        for name, address in NODES.items():
            text = self.adapt("packaging/nats/nats-server.conf", f"{name}.conf", changes | {
                "/var/lib/nats": f"store-{name}", "localhost": address, "0.0.0.0": address,
                "node.conf": f"{name}-node.conf"})
            self.write(f"{name}-node.conf", f"server_name: {name}\n")
        alone = text.replace("stream_replicas: 3", "stream_replicas: 1")
        self.write("alone.conf", re.sub(r"cluster {.*?\n}\n", "", alone, flags=re.DOTALL))

    def start_node(self, name):
        return Program(self, f"{name}.log", "nats-server", "-c", f"{name}.conf")

    def ask(self, name, what):
        try:
            with urllib.request.urlopen(f"http://{NODES[name]}:{self.http}/{what}") as answer:
                return json.load(answer)
        except OSError:
            return {}

    def wait_for_nodes(self, what="healthz", but=None):
        for name in NODES.keys() - {but}:
            wait_for(lambda: self.ask(name, what).get("status") == "ok", f"{what} of {name}")

    def sessions_leader(self):
        state = self.ask("nats1", "jsz?streams=true")["account_details"][0]
        return next((stream["cluster"].get("leader") for stream in state["stream_detail"]
                     if stream["name"] == "$MQTT_sess"), None)

    def start_reader(self, node):
        reader = Program(self, f"reader{len(self.programs)}", "stdbuf", "-oL", "mosquitto_sub",
                         "-d", "-h", NODES[node], *self.account("viewer"), "-i", "reader", "-c",
                         "-q", "1", "-t", "cameras/#", "-F", "%U %t %p")
        reader.wait_for("Subscribed")
        return reader

    def start_camera(self, name, hosts, *source):
        return Program(self, f"{name}.log", self.bin / "va_mqtt", "--host", ", ".join(hosts),
                       "--port", str(self.port), "--cafile", "ca.crt", "--username", name,
                       "--password-file", "password", "--client-id", name,
                       "--prefix", f"cameras/{name}", *source)

    def account(self, name):
        return ["-p", str(self.port), "--cafile", "ca.crt", "-u", name, "-P", "PASSWORD"]


class ClusterTest(unittest.TestCase):
    def test_nothing_is_lost_when_a_node_is_killed(self):
        self.lab = Cluster(BIN)
        self.addCleanup(self.lab.close)
        appearances = [(round(i * STEP * 1e3), b"od", (i, 3, 10, 5, 4, 4, 12, 7, i, 0))
                       for i in range(1, EVENTS + 1)]
        self.lab.write_capture([*appearances, (999_000, b"ta", [0, 0, 0, 0])])  # else it ends
        self.nodes = {name: self.lab.start_node(name) for name in NODES}
        self.lab.wait_for_nodes()
        self.lab.start_reader("nats1").end()  # with which the cluster makes its streams
        victim = wait_for(self.lab.sessions_leader, "the sessions' leader")
        for bound in (12, 3):  # when it is back it leads nothing
            with self.subTest(bound):
                self.check(victim, bound)
            self.nodes[victim] = self.lab.start_node(victim)
            self.lab.wait_for_nodes("healthz?js-server-only=true")

    def test_one_node_alone(self):
        lab = Cluster(BIN)
        self.addCleanup(lab.close)
        lab.start_node("alone")
        wait_for(lambda: lab.ask("nats3", "healthz").get("status") == "ok", "the node")
        lab.start_daemon()
        reader = lab.start_reader("nats3")

        def counts():
            return [int(count) for count in re.findall(r'Counter/.*"Count":(\d+)', reader.text())]

        for more in (2, 4):
            camera = lab.start_camera("camera1", [NODES["nats3"]], "--directory", "run")
            wait_for(lambda: len(set(counts())) > more, "counts")
            self.assertEqual(camera.end(), 0)
            self.assertNotIn("waiting for 127", camera.text())
        self.assertEqual(list(dict.fromkeys(counts())), list(range(counts()[0], counts()[-1] + 1)))

    def check(self, victim, bound):
        reader = self.lab.start_reader(next(name for name in NODES if name != victim))
        self.lab.run("mosquitto_pub", "-h", NODES[victim], *self.lab.account("camera1"),
                     "-t", "cameras/camera2/va/track/999", "-m", "Began")  # is not its place
        cameras = {name: self.lab.start_camera(name, NODES.values(), "-r", "capture", "--pace", "1")
                   for name in CAMERAS}
        wait_for(lambda: len(events(reader)) == len(CAMERAS), "all cameras")
        self.lab.wait_for_nodes(but=victim)  # which may not have all again
        hosts = {re.findall(r"connected to ([\d.]+)", camera.text())[-1]
                 for camera in cameras.values()}
        self.assertEqual(hosts, set(NODES.values()))
        self.nodes[victim].kill()
        for last in (EVENTS // 2, EVENTS):
            wait_for(lambda: all(last in numbers for _, numbers in events(reader).values()),
                     f"event {last} of each")
        for program in (reader, *cameras.values()):
            program.end()
        for name, (times, numbers) in events(reader).items():  # one may come twice
            self.assertEqual(list(dict.fromkeys(numbers)), list(range(1, EVENTS + 1)), name)
            gap = max(later - time for time, later in zip(times, times[1:]))
            self.assertLess(gap - STEP, bound, name)


def events(reader):
    """Of each camera: when they came, and their numbers."""
    found = defaultdict(lambda: ([], []))
    for time, camera, number in re.findall(r"^([\d.]+) cameras/(\w+)/va/track/(\d+) .*Began",
                                           reader.text(), re.MULTILINE):
        found[camera][0].append(float(time))
        found[camera][1].append(int(number))
    return found


if __name__ == "__main__":
    BIN = sys.argv.pop(1)
    unittest.main()
