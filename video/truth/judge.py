#!/usr/bin/env python3
"""usage: judge.py TRUTH LINES
Compares what va_video reported (LINES, of the feed) with what make_clip has shown (TRUTH). Prints a
line of counts; a line for each difference, and status 1, when there is one.
"""
import sys

MOVING, STATIONARY = 3, 19
WIDTH, HEIGHT = 1920, 1080  # the frame of the reported boxes
LATE = 1000  # ms, at most


def read_pictures(path):
    """Yields (time, {id: (kind, box)}, {id: box}, [cause of tampering])."""
    objects, faces, tampers = {}, {}, []
    for line in open(path):
        word, *values = line.split()
        values = [int(value) for value in values]
        if word == "object":
            objects[values[0]] = (values[1], values[2:])
        elif word == "face":
            faces[values[0]] = values[1:]
        elif word == "ta":
            tampers.append(values[1])
        elif word == "picture":
            yield values[0], objects, faces, tampers
            objects, faces, tampers = {}, {}, []


def centre(box):
    return box[0] + box[2] / 2


def crossings(pictures):
    """(time, direction) of each crossing of the middle, as a line filter finds it."""
    found, before = [], {}
    for time, objects, _, _ in pictures:
        for number, (_, box) in objects.items():
            was, now = before.get(number), centre(box)
            if was is not None and (was < WIDTH / 2) != (now < WIDTH / 2):
                found.append((time, 1 if was < now else 2))
        before = {number: centre(box) for number, (_, box) in objects.items()}
    return found


def overlap(a, b):
    width = min(a[0] + a[2], b[0] + b[2]) - max(a[0], b[0])
    height = min(a[1] + a[3], b[1] + b[3]) - max(a[1], b[1])
    common = max(width, 0) * max(height, 0)
    return common / (a[2] * a[3] + b[2] * b[3] - common)


class Judge:
    def __init__(self, truth, pictures):
        self.truth = truth
        self.pictures = pictures
        self.failures = []

    def of(self, kind):
        return [values for word, values in self.truth if word == kind]

    def pair(self, what, expected, found, late):
        """Each of `expected` (time, sign) has one of `found` near its time, and none remains."""
        left = list(found)
        for time, sign in expected:
            near = [item for item in left if item[1] == sign and abs(item[0] - time) <= late]
            if near:
                left.remove(min(near, key=lambda item: abs(item[0] - time)))
            else:
                self.failures.append(f"{what} {sign} at {time} ms was missed")
        self.failures += [f"{what} {sign} at {time} ms without a cause" for time, sign in left]

    def judge_crossings(self):
        self.pair("crossing", [tuple(values) for values in self.of("cross")],
                  crossings(self.pictures), LATE)

    def judge_tracks(self):
        moving = self.of("moving")[0][0]
        numbers = {number for _, objects, _, _ in self.pictures
                   for number, (kind, _) in objects.items() if kind == MOVING}
        if abs(len(numbers) - moving) > 0.05 * moving:
            self.failures.append(f"{len(numbers)} tracks of {moving} that moved")
        return len(numbers)

    def judge_standing(self, scale):
        spans = {}  # number: box, first and last time
        for time, objects, _, _ in self.pictures:
            for number, (kind, box) in objects.items():
                if kind == STATIONARY:
                    spans.setdefault(number, [box, time, time])[2] = time
        for begin, end, *box in self.of("standing"):
            place = [scale * value for value in box]
            seen = [number for number, (at, first, last) in spans.items()
                    if overlap(at, place) > 0.5 and begin + 3000 <= first <= begin + 5000
                    and end - 200 <= last <= end + LATE]
            if not seen:
                self.failures.append(f"what stood at {place} from {begin} to {end} ms was missed")
            for number in seen:
                del spans[number]
        self.failures += [f"{number} stood at {span} without a cause"
                          for number, span in spans.items()]

    def judge_faces(self):
        times = {}
        for time, _, faces, _ in self.pictures:
            for number in faces:
                times.setdefault(number, []).append(time)
        for begin, end in self.of("face"):
            longest = max((seen[-1] - seen[0] for seen in times.values()), default=0)
            if longest < 0.8 * (end - begin):
                self.failures.append(f"a face was kept for {longest} of {end - begin} ms")
        if len(times) != len(self.of("face")):
            self.failures.append(f"{len(times)} faces instead of {len(self.of('face'))}")

    def judge_tampers(self):
        found = [(time, cause) for time, _, _, tampers in self.pictures for cause in tampers]
        self.pair("tampering", [tuple(values) for values in self.of("tamper")], found, LATE)


def main():
    truth = [(line.split()[0], [int(value) for value in line.split()[1:]])
             for line in open(sys.argv[1])]
    judge = Judge(truth, list(read_pictures(sys.argv[2])))
    width = judge.of("width")[0][0]
    judge.judge_crossings()
    tracks = judge.judge_tracks()
    judge.judge_standing(WIDTH / width)
    judge.judge_faces()
    judge.judge_tampers()
    print(f"{len(judge.pictures)} frames, {len(crossings(judge.pictures))} crossings of "
          f"{len(judge.of('cross'))}, {tracks} tracks of {judge.of('moving')[0][0]}")
    for failure in judge.failures:
        print(f"judge.py: {failure}")
    sys.exit(bool(judge.failures))


main()
