#!/usr/bin/env python3
"""usage: feed.py PATH: a feed for a scene with `feed PATH`: somebody walks to and fro."""

import itertools
import sys
import time

WIDTH, HEIGHT, RATE = 640, 360, 25

try:
    with open(sys.argv[1], "w") as feed:  # waits for the FIFO's reader
        print("frame", WIDTH, HEIGHT, file=feed)
        for number in itertools.count():
            x = 60 + abs(number * 4 % 1000 - 500)
            print("object 1 moving", x, 120, 40, 90, file=feed)
            print("face 1", x + 12, 125, 16, 20, file=feed)
            print("picture", number, file=feed, flush=True)
            time.sleep(1 / RATE)
except (BrokenPipeError, KeyboardInterrupt):
    pass
