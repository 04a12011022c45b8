#!/usr/bin/python3
"""usage: plain_tracker.py CLIP
A plain tracker to compare va_video with: MOG2 as it comes, contours, the nearest centre. Writes the
lines of a feed. Milliseconds of the processor a look, all threads, on standard error.
"""
import math
import resource
import sys

import cv2


def processor_ms():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return 1000 * (usage.ru_utime + usage.ru_stime)


cv2.setNumThreads(1)
clip = cv2.VideoCapture(sys.argv[1])
model = cv2.createBackgroundSubtractorMOG2()
kernel = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (3, 3))
tracks, last, looks, begin = {}, 0, 0, 0
while True:
    shown, picture = clip.read()
    if not shown:
        break
    if picture.shape[1] > 640:
        picture = cv2.resize(picture, (640, 640 * picture.shape[0] // picture.shape[1]))
    mask = cv2.threshold(model.apply(picture), 200, 255, cv2.THRESH_BINARY)[1]
    mask = cv2.morphologyEx(mask, cv2.MORPH_OPEN, kernel)
    mask = cv2.morphologyEx(mask, cv2.MORPH_CLOSE, kernel, iterations=3)
    contours, _ = cv2.findContours(mask, cv2.RETR_EXTERNAL, cv2.CHAIN_APPROX_SIMPLE)
    height, width = mask.shape
    before, tracks = tracks, {}
    for x, y, w, h in map(cv2.boundingRect, contours):
        if w * h < 0.002 * width * height:
            continue
        centre = x + w / 2, y + h / 2
        near = min(before, key=lambda number: math.dist(before[number][0], centre), default=None)
        if near is None or math.dist(before[near][0], centre) > 50:
            near = last = last + 1
        else:
            del before[near]
        tracks[near] = centre, 0
        left, top = x * 1920 // width, y * 1080 // height
        print("object", near, 3, left, top, w * 1920 // width, h * 1080 // height)
    tracks |= {number: (centre, missed + 1) for number, (centre, missed) in before.items()
               if missed < 10}
    print("picture", round(1000 * looks / clip.get(cv2.CAP_PROP_FPS)))
    looks += 1
    begin = begin or processor_ms()  # what the first takes is no measure
print(f"{(processor_ms() - begin) / (looks - 1):.2f}", file=sys.stderr)
