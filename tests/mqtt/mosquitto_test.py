"""usage: mosquitto_test.py BIN [unittest argument...]: brokers as packaging/mosquitto/ has them."""

import shutil
import ssl
import subprocess
import sys
import unittest
from pathlib import Path

import paho.mqtt.client as paho
from lab import ROOT, Lab, Subscriber, wait_for

EVENTS = "cameras/cam1/onvif-ej/x"
AVAILABLE = "cameras/cam1/va/available"


def of(prefix):
    config = f"homeassistant/event/va_{prefix.replace('/', '_')}/x/config"
    return {prefix + "/va/reconfig", prefix + "/onvif-ej/x", config}


class MosquittoTest(unittest.TestCase):
    def lab(self, cameras):
        lab = Lab(BIN)
        self.addCleanup(lab.close)
        subprocess.run([ROOT / "packaging/mosquitto/add-cameras.sh", lab.folder], text=True,
                       input=cameras, check=True)
        Path(lab.folder, "conf.d/save.conf").unlink()  # none is killed
        for file in Path(lab.folder, "new").iterdir():
            lab.passwords[file.name] = file.read_text().strip()
        return lab

    def publish(self, lab, account, topic, *how, **more):
        return subprocess.run(["mosquitto_pub", *lab.tls(account), "-q", "1", "-t", topic, *how],
                              cwd=lab.folder, capture_output=True, **more).returncode

    def publish_numbers(self, lab, count):
        client = paho.Client()
        client.username_pw_set("cam1", "cam1 secret")
        client.tls_set(lab.folder + "/ca.crt", tls_version=ssl.PROTOCOL_TLS_CLIENT)
        client.connect("localhost", lab.port)
        sent = [client.publish(EVENTS, str(i), qos=1) for i in range(count)]
        wait_for(lambda: client.loop() or sent[-1].is_published(), "published")

    def test_what_accounts_may_do(self):
        lab = self.lab("cam2\nhall-1 cameras/hall/1\n")
        broker = lab.start_broker()
        cam2, hall = of("cameras/cam2"), of("cameras/hall/1")
        writes = {"cam2": cam2 | {"cameras/cam2/onvif-mj/x"},
                  "hall-1": hall | {"cameras/hall/1/onvif-mj/x"},
                  "homeassistant": {topic for topic in cam2 | hall if "onvif" not in topic},
                  "viewer": set()}
        topics = set.union(*writes.values())
        reads = {"cam2": cam2, "hall-1": hall, "homeassistant": topics,
                 "viewer": {topic for topic in topics if topic.startswith("cameras")}}

        def tell():
            for name in ("cam2", "hall/1"):
                self.publish(lab, "admin", f"cameras/{name}/va/last", "-m", "x")

        admin = Subscriber(lab, "admin", "#")
        Subscriber(lab, "cam1", "#")  # whose place others try to take
        wait_for(lambda: tell() or admin.messages("last"), "admin")
        wait_for(lambda: "as cam1 " in broker.text(), "cam1")
        for account in writes:
            takes_over = ["-i", "cam1"] if account in ("cam2", "hall-1") else []
            for topic in topics | {"cameras/cam2/x", "sites/cam2/x", "x"}:
                self.publish(lab, account, topic, "-r", "-m", account, *takes_over)
        for size in (1000001, 1000000):
            self.publish(lab, "admin", "cameras/cam1/va/still", "-s", input=b"x" * size)
        self.assertEqual(len(admin.wait("still")["payload"]), 1000000)
        sent = {(m["payload"], m["topic"]) for m in admin.messages() if m["retain"] == 0}
        self.assertEqual({pair for pair in sent if pair[0] in writes},
                         {(account, topic) for account in writes for topic in writes[account]})
        for account, expected in reads.items():
            reader = Subscriber(lab, account, "#")  # to which what is retained comes first
            wait_for(lambda: tell() or reader.messages("last"), account)
            self.assertEqual({m["topic"] for m in reader.messages() if m["retain"]}, expected)
            reader.end()
        self.assertNotIn("already connected", broker.text())
        elsewhere = ["-p", str(lab.reader_port)]
        self.assertNotEqual(self.publish(lab, "cam1", "x", "-m", "x", *elsewhere), 0)

    def test_a_bridge_keeps_what_the_centre_misses(self):
        centre, site = self.lab("site1 sites/site1\n"), self.lab("cam2\n")
        shutil.copy(centre.folder + "/ca.crt", site.folder + "/centre.crt")
        site.adapt("packaging/mosquitto/bridge.conf", "conf.d/bridge.conf", {
            "centre.example:8883": f"localhost:{centre.port}", "/etc/mosquitto/va": site.folder,
            "remote_password secret": "remote_password " + centre.passwords["site1"]})
        broker, away = site.start_broker(), centre.start_broker()
        reader = Subscriber(centre, "viewer", "sites/#", session="keeper")
        self.publish(site, "cam1", AVAILABLE, "-r", "-m", "online")
        reader.wait(AVAILABLE)
        reader.end()
        away.end()
        self.publish_numbers(site, 2000)
        broker.end()
        site.start_broker()
        self.publish(site, "cam1", EVENTS, "-m", "2000")
        centre.start_broker()
        reader = Subscriber(centre, "viewer", "sites/#", session="keeper")
        reader.wait(EVENTS, lambda m: m["payload"] == "2000")
        arrived = {int(m["payload"]) for m in reader.messages("sites/site1/" + EVENTS)}
        self.assertEqual(arrived, set(range(2001)))
        late = Subscriber(centre, "viewer", "sites/#")
        self.assertTrue(late.wait("sites/site1/" + AVAILABLE)["retain"])


if __name__ == "__main__":
    BIN = sys.argv.pop(1)
    unittest.main()
