"""A broker as packaging/mosquitto/ sets one up, a daemon with a scene, and va_mqtt, on loopback."""

import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PATIENCE = 30  # seconds that anything may take
READERS = ("viewer", "homeassistant", "admin")  # accounts

STORE = """
Properties.ImageSource.Sensor=imx122
EventDetection.VumeruOD=yes
EventDetection.FaceDetection=yes
EventDetection.CameraTampering=yes
CrossLine.C0.StartX=5000
CrossLine.C0.StartY=0
CrossLine.C0.EndX=5000
CrossLine.C0.EndY=9999
"""
AREA = """
ObjectDetection.O0.Left=6000
ObjectDetection.O0.Right=9999
ObjectDetection.O0.Top=0
ObjectDetection.O0.Bottom=9999
ObjectDetection.O0.Type=1
"""
MASK = "".join(f"VMDWindow.NonDetect.V0.{side}\n"
               for side in ("Left=0", "Top=0", "Right=1000", "Bottom=1000"))
# Object 7 crosses the line, then enters the area.
PERIOD = 2.5
SCENE = """
period 2500
od_interval 100
object 7 dynamic 100x100 from 300,270 to 1500,270 between 0 1000
face 3 at 400,300 size 200x200 between 0 1000
at 500 ta 1 0 0 0
"""


def wait_for(condition, what):
    end = time.monotonic() + PATIENCE
    while not (result := condition()):
        assert time.monotonic() < end, f"not within {PATIENCE} s: {what}"
        time.sleep(0.02)
    return result


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


class Program:
    """A child; what it prints and says goes into a file."""

    def __init__(self, lab, name, *command, **more):
        self.path = Path(lab.folder, name)
        with open(self.path, "wb") as output:
            self.child = subprocess.Popen(command, cwd=lab.folder, stdout=output,
                                          stderr=subprocess.STDOUT, **more)
        lab.programs.append(self)

    def text(self):
        return self.path.read_text(errors="replace")

    def wait_for(self, pattern):
        return wait_for(lambda: re.search(pattern, self.text()), f"{pattern} in {self.path.name}")

    def end(self, number=signal.SIGTERM):
        self.child.send_signal(number)
        return self.child.wait(PATIENCE)

    def kill(self):
        self.end(signal.SIGKILL)


class Subscriber(Program):
    def __init__(self, lab, account, *topics, session=None):
        topics = [part for topic in topics for part in ("-t", topic)]
        keep = ["-i", session, "-c"] if session else []
        super().__init__(lab, f"sub{len(lab.programs)}", "mosquitto_sub", "-V", "5", "-q", "1",
                         "-F", "%j", *lab.tls(account), *keep, *topics)

    def messages(self, part=""):
        lines = re.findall(r"^\{.*\n", self.text(), re.MULTILINE)  # whole ones
        return [m for m in map(json.loads, lines) if part in m["topic"]]

    def wait(self, part, accept=lambda message: True, begin=0):
        return wait_for(lambda: next(filter(accept, self.messages(part)[begin:]), None), part)


class Lab:
    def __init__(self, bin_folder):
        self.bin = Path(bin_folder).resolve()
        self.folder = tempfile.mkdtemp()
        self.programs = []
        self.port, self.reader_port = free_port(), free_port()
        self.passwords = {}  # others than "ACCOUNT secret"
        for name in ("run", "www"):
            Path(self.folder, name).mkdir()
        self.write("store", STORE + AREA)
        self.write("scene", SCENE)
        self._make_certificates()
        self._configure_broker()
        self.run(self.bin / "make_firmware", "firmware")

    def close(self):
        for program in self.programs:
            program.kill()
        shutil.rmtree(self.folder)

    def write(self, name, text, mode=0o600):
        path = Path(self.folder, name)
        path.touch(mode)
        path.write_text(text)
        path.chmod(mode)

    def write_capture(self, records):
        """As va_dump -w writes one, of (milliseconds, stream, words)."""
        with open(self.folder + "/capture", "wb") as capture:
            capture.write(b"va_dump\n" + struct.pack("=II", 1, 0x01020304))
            for ms, stream, words in records:
                capture.write(struct.pack(f"=Q4sI{len(words)}I", ms * 1000, stream,
                                          4 * len(words), *words))

    def run(self, *command):
        subprocess.run(command, cwd=self.folder, check=True, capture_output=True)

    def _make_certificates(self):
        for name in ("broker", "other"):
            self.run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                     "-subj", f"/CN={name}", "-addext", "subjectAltName=DNS:localhost",
                     "-keyout", f"{name}.key", "-out", f"{name}.crt")
        shutil.copy(f"{self.folder}/broker.crt", f"{self.folder}/ca.crt")  # signed by itself

    def _configure_broker(self):
        """As packaged, in Debian's own, but for places, ports, the user, and saving all at once."""
        for kind, accounts in (("cameras", ["cam1"]), ("readers", READERS)):
            self.write(f"passwords-{kind}", "")
            for account in accounts:
                self.write(f"{account}.password", f"{account} secret\n")
                self.run("mosquitto_passwd", "-b", f"passwords-{kind}", account,
                         f"{account} secret")
            shutil.copy(ROOT / f"packaging/mosquitto/acl-{kind}", self.folder)
        Path(self.folder, "conf.d").mkdir()
        user = subprocess.check_output(["id", "-un"], text=True)
        self.write("conf.d/user.conf", f"user {user}")
        self.write("conf.d/save.conf", "autosave_on_changes true\nlog_type all")
        self.adapt("packaging/mosquitto/va.conf", "conf.d/va.conf", {
            "/etc/mosquitto/va": self.folder, "listener 8883": f"listener {self.port} 127.0.0.1",
            "listener 8884": f"listener {self.reader_port} 127.0.0.1",
            "listener 9001": f"listener {free_port()}",
            "autosave_interval 30": "autosave_interval 1"})
        self.adapt("/etc/mosquitto/mosquitto.conf", "mosquitto.conf", {
            "/etc/mosquitto/conf.d": self.folder + "/conf.d", "/run/mosquitto": self.folder,
            "/var/lib/mosquitto": self.folder,
            "/var/log/mosquitto/mosquitto.log": self.folder + "/broker"})

    def adapt(self, source, name, changes):
        text = (ROOT / source).read_text()
        for old, new in changes.items():
            assert old in text, old
            text = text.replace(old, new)
        self.write(name, text)
        return text

    def tls(self, account):
        port = self.reader_port if account in READERS else self.port
        return ["-h", "localhost", "-p", str(port), "--cafile", "ca.crt",
                "-u", account, "-P", self.passwords.get(account, f"{account} secret")]

    def start_broker(self):
        broker = Program(self, "broker", "mosquitto", "-c", "mosquitto.conf")
        broker.wait_for("running")
        return broker

    def start_daemon(self):
        daemon = Program(self, "daemon", self.bin / "va_here",
                         env=os.environ | {"NVRAM_FILE": "store", "VA_SIM_SCENE": "scene"})
        wait_for(Path(self.folder, "run/ctrl").is_fifo, "the daemon's FIFO")
        return daemon

    def reconfigure(self, store):
        self.write("store", store)
        Path(self.folder, "run/ctrl").write_text("reconfig\n")

    def start_publisher(self, *arguments, **environment):
        self.write("va_mqtt.conf", f"""
            host = localhost
            port = {self.port}
            cafile = ca.crt
            username = cam1
            password-file = cam1.password
            prefix = cameras/cam1
            discovery = homeassistant""")
        return Program(self, f"publisher{len(self.programs)}", self.bin / "va_mqtt", "--settings",
                       "va_mqtt.conf", "--directory", "run", *arguments,
                       env=os.environ | environment)
