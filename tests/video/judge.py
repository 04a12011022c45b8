#!/usr/bin/env python3
"""usage: judge.py TRUTH LINES
Compares what va_video reported (LINES, of the feed) with what make_clip has shown (TRUTH). Prints a
line of figures; a line for each difference, and status 1, when there is one.
"""
import pathlib
import sys

MOVING, STATIONARY = 3, 19
WIDTH, HEIGHT = 1920, 1080  # the frame of the reported boxes
LATE = 1000  # ms, at most


def read_pictures(path):
    """Yields (time, {id: (kind, box)}, {id: box}, [cause of tampering; 0: a jump])."""
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
        elif word == "jump":
            tampers.append(0)
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


def inside(place, box):
    return (place[0] <= box[0] + box[2] / 2 <= place[0] + place[2]
            and place[1] <= box[1] + box[3] / 2 <= place[1] + place[3])


class Judge:
    def __init__(self, truth, pictures):
        self.truth = truth
        self.pictures = pictures
        self.failures = []
        width, height = self.of("size")[0]
        self.scale = 2 * (WIDTH / width, HEIGHT / height)

    def of(self, *words):
        """The values of the truth's lines that begin with these words."""
        return [line[len(words):] for line in self.truth if tuple(line[:len(words)]) == words]

    def allowed(self, what):
        return sum(count for count, in self.of("allow", what))

    def standing(self, word):
        """(from, to, place) of each, in the frame of the reported boxes."""
        return [(begin, end, [part * scale for part, scale in zip(box, self.scale)])
                for begin, end, *box in self.of(word)]

    def pair(self, what, expected, found, allowed=0):
        """Each of `expected` (time, sign) has one of `found` near its time, and at most `allowed`
        remain. Returns how many were found and how many remain."""
        left = list(found)
        missed = 0
        for time, sign in expected:
            near = [item for item in left if item[1] == sign and abs(item[0] - time) <= LATE]
            if near:
                left.remove(min(near, key=lambda item: abs(item[0] - time)))
            else:
                missed += 1
                self.failures.append(f"{what} {sign} at {time} ms was missed")
        if len(left) > allowed:
            self.failures += [f"{what} {sign} at {time} ms without a cause" for time, sign in left]
        return len(expected) - missed, len(left)

    def judge_crossings(self):
        expected = self.of("cross")
        found, false = self.pair("crossing", expected, crossings(self.pictures),
                                 self.allowed("false"))
        return f"{found} of {len(expected)} crossings, {false} false"

    def judge_stationary(self):
        """Returns the numbers of walkers who stood, and were reported as stationary."""
        spans = {}  # number: box, first and last time
        for time, objects, _, _ in self.pictures:
            for number, (kind, box) in objects.items():
                if kind == STATIONARY:
                    spans.setdefault(number, [box, time, time])[2] = time
        for begin, end, place in self.standing("standing"):
            seen = [number for number, (at, first, last) in spans.items()
                    if overlap(at, place) > 0.5 and begin + 3000 <= first <= begin + 5000
                    and end - 200 <= last <= end + LATE]
            if not seen:
                self.failures.append(f"what stood at {place} from {begin} to {end} ms was missed")
            for number in seen:
                del spans[number]
        stood = {number for begin, end, place in self.standing("stood")
                 for number, (at, first, last) in spans.items()
                 if inside(place, at) and begin <= first and last <= end + LATE}
        self.failures += [f"{number} stood at {span} without a cause"
                          for number, span in spans.items() if number not in stood]
        return stood

    def judge_objects(self):
        """Who moved has one number, also while standing."""
        moving = self.of("moving")[0][0]
        numbers = self.judge_stationary() | {
            number for _, objects, _, _ in self.pictures
            for number, (kind, _) in objects.items() if kind == MOVING}
        if not moving <= len(numbers) <= moving + self.allowed("objects"):
            self.failures.append(f"{len(numbers)} objects for {moving} that moved")
        return f"{len(numbers)} objects for {moving}"

    def judge_faces(self):
        times = {}
        for time, _, faces, _ in self.pictures:
            for number in faces:
                times.setdefault(number, []).append(time)
        expected = self.of("face")
        for begin, end in expected:
            longest = max((seen[-1] - seen[0] for seen in times.values()), default=0)
            if longest < 0.8 * (end - begin):
                self.failures.append(f"a face was kept for {longest} of {end - begin} ms")
        if len(times) != len(expected):
            self.failures.append(f"{len(times)} faces instead of {len(expected)}")
        return f"{len(times)} of {len(expected)} faces"

    def judge_tampers(self):
        expected = self.of("tamper")
        found, false = self.pair("tampering", expected, [
            (time, cause) for time, _, _, tampers in self.pictures for cause in tampers if cause])
        self.failures += [f"no jump with the tampering at {time} ms"
                          for time, _, _, tampers in self.pictures if any(tampers) and 0 not in tampers]
        return f"{found} of {len(expected)} tampers, {false} false"


def read_truth(path):
    return [[int(word) if word.isdigit() else word for word in line.split()]
            for line in open(path)]


def main():
    judge = Judge(read_truth(sys.argv[1]), list(read_pictures(sys.argv[2])))
    figures = [judge.judge_crossings(), judge.judge_objects(), judge.judge_tampers(),
               judge.judge_faces()]
    if [[len(judge.pictures)]] != judge.of("frames"):
        judge.failures.append("not each frame was looked at")
    name = pathlib.Path(sys.argv[1]).stem
    print(f"{name}: {len(judge.pictures)} frames, {', '.join(figures)}")
    for failure in judge.failures:
        print(f"{name}: {failure}")
    sys.exit(bool(judge.failures))


main()
