#!/usr/bin/env python3
"""Prints the records of the video-analytics daemon, one line each, until Ctrl-C.

Reconnects whenever the daemon is restarted. Needs only the standard library.
"""

import argparse
import os
import select
import signal
import socket
import struct
import sys

STREAMS = ("od", "vmf", "fd", "ta")
LONGEST = 1 << 20  # bytes of a payload: a peer that announces more is not the daemon
RETRY = 0.2  # seconds between two attempts to connect
DIRECTORY = os.environ.get("VA_RUN_DIR", "/tmp/va_info")  # of the sockets


class Stream:
    def __init__(self, directory, name):
        self.name = name
        self.path = os.path.join(directory, name)
        self.socket = None
        self.received = b""  # starts with a frame's length
        self.said = None

    def say(self, text):
        """Reports each change of the connection once."""
        if text != self.said:
            print(f"client.py: {self.path}: {text}", file=sys.stderr)
        self.said = text

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        connection.setblocking(False)  # connect() would block on a daemon at its limit
        try:
            connection.connect(self.path)
            self.socket, self.received = connection, b""
            self.say("connected")
        except OSError as error:  # nobody listens yet: try again later
            connection.close()
            self.say(f"waiting for the daemon: {error.strerror}")

    def payloads(self):
        """The payloads that one read completes. Closes the connection when the daemon has."""
        try:
            got = self.socket.recv(65536)
        except OSError:
            got = b""
        self.received += got
        while len(self.received) >= 4:
            (length,) = struct.unpack_from("=I", self.received)
            if length > LONGEST:
                got = b""
            if length > LONGEST or len(self.received) < 4 + length:
                break
            yield self.received[4 : 4 + length]
            self.received = self.received[4 + length :]
        if not got:
            self.socket.close()
            self.socket = None
            self.say("closed by the daemon")


def reconfigure(directory):
    """Has the daemon reload its settings; raises OSError at once when it does not run."""
    control = os.open(os.path.join(directory, "ctrl"), os.O_WRONLY | os.O_NONBLOCK)
    os.write(control, b"reconfig\n")
    os.close(control)


parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
parser.add_argument("-d", "--directory", default=DIRECTORY, help="of the sockets")
parser.add_argument("--reconfig", action="store_true", help="have the daemon reload its settings first")
options = parser.parse_args()
signal.signal(signal.SIGINT, signal.SIG_DFL)
signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # "| head" is a common end
if options.reconfig:
    reconfigure(options.directory)
streams = [Stream(options.directory, name) for name in STREAMS]
while True:
    for stream in (stream for stream in streams if not stream.socket):
        stream.connect()
    connected = {stream.socket: stream for stream in streams if stream.socket}
    for readable in select.select(list(connected), [], [], RETRY)[0]:
        for payload in connected[readable].payloads():
            words = struct.unpack(f"={len(payload) // 4}I", payload)
            print(connected[readable].name, *words, flush=True)
