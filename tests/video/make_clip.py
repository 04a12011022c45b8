#!/usr/bin/python3
"""usage: make_clip.py FILE.avi [NAME=NUMBER...] [face=IMAGE]
Makes a clip with known content, to judge what was detected in it. Walkers cross a line down the
middle of a textured ground with noise, changing light and a swaying strip.
    seed=1 seconds=10 rate=25 width=640 height=0 (9/16 of the width) light=0.1
    noise=4 (11 at night)  sway=4 (0 with shake)  grain=1 (6 with shake): how rough the ground is
    walkers=0  who cross the line      tall=0   their height, as a share of the picture's (any)
    pairs=0    of them meet on it      stand=0  besides: who stop near it for some seconds
    standing=0 objects left behind     cloud=0  patches of shadow or light that pass
    shake=0    pixels of 640, at 3 to 5 Hz      night=1  dark, noisy, with headlights
    wall=0     plain ground: 1 bright, 2 dark, 3 black; door=1: but for a door
    covered=0 turned=0 dark=0  seconds until that happens to the camera, for two seconds
    cover=1    with: 1 a dark cloth, 2 a bright hand
What happens is written on standard output, a line each, times in ms, places in pixels:
    size WIDTH HEIGHT
    frames COUNT
    cross TIME 1|2           a walker's centre crosses the line to the right, to the left
    moving COUNT
    standing FROM TO X Y WIDTH HEIGHT
    stood FROM TO X Y WIDTH HEIGHT  a walker stood there
    face FROM TO
    tamper TIME CAUSE
    allow WHAT COUNT         so many may be false, of crossings or objects
"""
import dataclasses
import math
import sys

import cv2
import numpy

FACE_COMES = 1  # seconds
TAMPER_LASTS = 2
MARGIN = 1 / 32  # of the width: scene around the picture, into which the camera shakes
SUBPIXEL = 4  # bits
SHADES = numpy.arange(256)

# In the photograph astronaut.png of Debian's python3-skimage.
PLACE_OF_FACE = (slice(0, 200), slice(145, 305))


def between(least, most, count=None):
    return RANDOM.uniform(least, most, count)


@dataclasses.dataclass
class Walker:
    """Walks straight on at an even pace; may stop at `place` and go on, or turn back."""
    begin: float  # seconds, when there
    speed: float  # widths of the picture a second; negative: to the left
    feet: float  # where they are, share of the height
    tall: float  # share of the height
    coat: tuple
    trousers: tuple
    place: float = 0.5  # share of the width
    stops: float = 0  # seconds
    turn: int = 1  # -1: turns back

    def x_at(self, time):
        gone = self.turn * numpy.maximum(time - self.begin - self.stops, 0)
        return self.place + self.speed * (numpy.minimum(time - self.begin, 0) + gone)

    def stands(self, time):
        return self.begin <= time < self.begin + self.stops

    def crossings(self, seconds):
        right = self.x_at(numpy.arange(0, seconds, 0.001)) >= 0.5
        return [(at + 1, 1 if right[at + 1] else 2)
                for at in numpy.flatnonzero(right[1:] != right[:-1])]

    def draw(self, scene, time):
        """The scene's middle is the picture's."""
        tall = self.tall * SIZE[1]
        x = (self.x_at(time) - 0.5) * SIZE[0] + scene.shape[1] / 2
        if not -tall < x < scene.shape[1] + tall:
            return
        feet = (self.feet - 0.5) * SIZE[1] + scene.shape[0] / 2
        pace, reach = 0.12 * math.sin(2 * math.pi * 1.8 * time), 0.1
        if self.stands(time):
            pace, reach = 0.04, 0.1 + 0.05 * math.sin(2 * math.pi * 0.7 * time)
            x += 0.01 * tall * (math.sin(5 * time) + math.sin(3.1 * time))

        def point(right, up):
            scale = 1 << SUBPIXEL
            return round((x + right * tall) * scale), round((feet - up * tall) * scale)

        def line(start, end, thick):
            cv2.line(scene, point(*start), point(*end), self.trousers,
                     max(round(thick * tall), 1), cv2.LINE_AA, SUBPIXEL)

        def ellipse(at, width, height, colour):
            axes = [round(length * tall * (1 << SUBPIXEL)) for length in (width, height)]
            cv2.ellipse(scene, point(*at), axes, 0, 0, 360, colour, cv2.FILLED, cv2.LINE_AA,
                        SUBPIXEL)

        line((0, 0.48), (pace, 0), 0.09)
        line((0, 0.48), (-pace, 0), 0.09)
        ellipse((0, 0.63), 0.14, 0.22, self.coat)
        line((-0.08, 0.7), (reach, 0.55), 0.045)
        skin = (140, 170, 210)
        ellipse((0, 0.92), 0.075, 0.075, [part * SKIN for part in skin])


class Clip:
    """What does not change, and what moves."""

    def __init__(self, settings):
        self.set = settings
        self.seconds = settings["seconds"]
        self.margin = round(MARGIN * SIZE[0])
        self.ground = self.make_ground()
        self.elsewhere = texture(SIZE, settings["grain"])
        self.walkers = self.make_walkers()
        self.objects = self.make_objects()
        self.phases = between(0, 2 * math.pi, 2)
        self.tremor = between(3, 5, 2)  # Hz
        self.clouds = [self.make_cloud(i) for i in range(int(settings["cloud"]))]
        self.hand = self.make_hand()
        self.noise = [self.make_noise(sign) for sign in (1, -1)]
        self.face = None
        if settings["face"]:
            face = cv2.imread(settings["face"])[PLACE_OF_FACE]
            factor = 0.3 * SIZE[1] / face.shape[0]
            self.face = cv2.resize(face, None, fx=factor, fy=factor, interpolation=cv2.INTER_AREA)

    def make_ground(self):
        size = [side + 2 * self.margin for side in SIZE]
        ground = texture(size, self.set["grain"])
        level = PLAIN.get(self.set["wall"])
        if level:
            shade = numpy.linspace(0.94, 1.06, size[0])[None, :, None]
            wall = numpy.full((*size[::-1], 3), level * shade).round().astype(numpy.uint8)
            if self.set["door"]:
                part = slice(size[1] // 4, None), slice(size[0] // 16, size[0] // 5)
                wall[part] = ground[part] * (level / 150)
            ground = wall
        return cv2.convertScaleAbs(ground, alpha=0.22) if self.set["night"] else ground

    def make_noise(self, sign):
        shape = (SIZE[1] + 64, SIZE[0] + 64, 3)
        cv2.setRNGSeed(int(self.set["seed"]))  # both signs of the same
        noise = cv2.randn(numpy.empty(shape, numpy.int16), 0, self.set["noise"])
        return numpy.maximum(sign * noise, 0).astype(numpy.uint8)

    def clothes(self):
        """Coat and trousers, which are to be seen before the ground."""
        if self.set["night"]:
            return [tuple(25 + between(20, 40) + between(-4, 4, 3)) for _ in range(2)]
        level = PLAIN.get(self.set["wall"])
        if level:
            strong = between(0, 1) < 0.5
            step = between(60, 110) if strong else between(30, 50)
            sign = -1 if level > 100 and between(0, 1) < 0.6 else 1
            return [tuple((level + sign * step + between(5, 30) * between(-1, 1, 3)).clip(0, 255))
                    for _ in range(2)]
        if between(0, 1) < 0.6:
            return tuple(between(0, 50, 3)), tuple(between(10, 60, 3))
        return tuple(between(190, 255, 3)), tuple(between(180, 230, 3))

    def make_walker(self, begin, to_right, **more):
        tall = self.set["tall"] or between(*((0.35, 0.75) if self.set["wall"] else (0.2, 0.32)))
        speed = between(0.18, 0.32) * (1 if to_right else -1)
        return Walker(begin, speed, between(max(0.62, tall + 0.05), 0.95), tall, *self.clothes(),
                      **more)

    def make_walkers(self):
        """They cross the line one after the other, so that each crossing has a time of its own.
        Two of a pair do so within a third of a second, from both sides, one before the other."""
        pairs, stand = int(self.set["pairs"]), int(self.set["stand"])
        moments = int(self.set["walkers"]) - pairs
        spacing = max(moments // max(pairs, 1), 1)  # of pairs
        first = 3
        gap = (self.seconds - first - 0.5) / max(moments, 1)
        wall = self.set["wall"]  # there all walk the same way: the tall would hide each other
        walkers = []
        for i in range(moments):
            crosses = first + gap * (i + between(0, 0.3))
            walkers.append(self.make_walker(crosses, (self.set["seed"] if wall else i) % 2 == 0))
            if i % spacing == 0 and i // spacing < pairs:
                other = self.make_walker(crosses + 0.3, i % 2 == 1)
                other.feet = walkers[-1].feet + 0.01
                walkers.append(other)
        for i in range(stand):  # before the line, just before, just past, past it
            begin = first + (self.seconds - first) / stand * i
            offset = RANDOM.choice([-0.07, -0.015, 0.015, 0.07])
            walkers.append(self.make_walker(
                begin, i % 2 == 0, place=0.5 + offset, stops=between(4, 8),
                turn=int(RANDOM.choice([1, 1, -1]))))
        return walkers

    def make_objects(self):
        """(from, to, box, image) of each; along the top, where nobody walks in front of them."""
        count = int(self.set["standing"])
        objects = []
        for i in range(count):
            share = ((i + 0.5) / count * 0.8 + 0.05, 0.05, between(0.05, 0.09), between(0.1, 0.14))
            box = [round(part * side) for part, side in zip(share, SIZE * 2)]
            shade = between(0, 40, 3) if i % 2 else between(200, 255, 3)
            image = numpy.full((box[3], box[2], 3), shade).astype(numpy.uint8)
            cv2.rectangle(image, (2, 2, box[2] - 4, box[3] // 3), between(0, 255, 3), 2)
            objects.append((1.5 + i * 0.5, self.seconds - 1.2, box, image))
        return objects

    def make_cloud(self, i):
        """(from, to, factors): a soft patch in the middle of a strip that is three pictures long,
        and passes over the picture. Its factors are 128ths."""
        strip = numpy.zeros((90, 480), numpy.float32)
        for _ in range(3):
            at = round(between(215, 265)), round(between(20, 70))
            cv2.ellipse(strip, at, (round(between(40, 50)), round(between(40, 60))), 0, 0, 360, 1,
                        cv2.FILLED)
        factor = between(0.6, 0.75)
        strip = cv2.GaussianBlur(strip, None, between(6, 12))
        strip = 128 * (1 + ((1 / factor if i % 2 else factor) - 1) * strip)
        strip = cv2.resize(strip, (3 * SIZE[0], SIZE[1])).round().astype(numpy.uint8)
        begin = 2 + (self.seconds - 2) / self.set["cloud"] * i
        return begin, begin + between(2, 4), cv2.merge([strip] * 3)

    def make_hand(self):
        """Bright, out of focus, unevenly lit."""
        shades = cv2.GaussianBlur(texture((160, 90), 1), None, 13)
        light = numpy.linspace(0.7, 1.3, 160)[None, :, None] * (0.85, 1, 1.35)
        return cv2.resize((shades * light + 60).clip(0, 255).astype(numpy.uint8), SIZE)

    def draw_scene(self, time):
        scene = self.ground.copy()
        width = SIZE[0] // 16
        shift = round(self.set["sway"] * (1 + math.sin(5 * time)) * SIZE[0] / 640)
        strip = slice(0, SIZE[1] // 3)
        x = SIZE[0] - 2 * width
        scene[strip, x:x + width] = self.ground[strip, x + shift:x + shift + width]
        for begin, end, (x, y, width, height), image in self.objects:
            if begin <= time < end:
                x, y = x + self.margin, y + self.margin
                scene[y:y + height, x:x + width] = image
        if self.face is not None and time >= FACE_COMES:
            self.draw_face(scene, time / self.seconds)
        for walker in self.walkers:
            walker.draw(scene, time)
        return scene

    def draw_face(self, scene, part):
        """Right of the line, above the walkers."""
        height, width = self.face.shape[:2]
        x = self.margin + SIZE[0] // 2 + width + round((SIZE[0] // 2 - 2 * width) * part)
        y = self.margin + SIZE[1] // 50
        mask = numpy.zeros((height, width), numpy.uint8)
        cv2.ellipse(mask, (width // 2, height // 2), (width // 2, height // 2), 0, 0, 360, 1,
                    cv2.FILLED)
        cv2.copyTo(self.face, mask, scene[y:y + height, x:x + width])

    def look(self, scene, time):
        """What of the scene the camera sees, which may shake."""
        if not self.set["shake"]:
            return numpy.ascontiguousarray(
                scene[self.margin:self.margin + SIZE[1], self.margin:self.margin + SIZE[0]])
        swing = numpy.sin(2 * math.pi * self.tremor * time + self.phases) * (1, 0.7)
        shift = self.margin + self.set["shake"] * SIZE[0] / 640 * swing
        return cv2.warpAffine(scene, numpy.float32([[1, 0, shift[0]], [0, 1, shift[1]]]), SIZE,
                              flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP)

    def light_up(self, picture, time):
        """Clouds, headlights, and the light of it all."""
        for begin, end, factors in self.clouds:
            if begin <= time < end:
                x = round(2 * SIZE[0] * (time - begin) / (end - begin))
                picture = cv2.multiply(picture, factors[:, x:x + SIZE[0]], scale=1 / 128)
        light = 1 + self.set["light"] * math.sin(0.7 * time)
        if self.set["night"]:
            light += 0.03 * math.sin(2 * math.pi * time)
            self.draw_headlight(picture, time)
        if self.within("dark", time) is not None:
            light *= 0.3
        return cv2.LUT(picture, (SHADES * light).clip(0, 255).round().astype(numpy.uint8))

    def draw_headlight(self, picture, time):
        """A car at the left edge, for 1.5 of each 5 seconds, from the second on."""
        part = (time - 2) % 5 / 1.5
        if part > 1 or time < 2:
            return
        x, y = 0.02 + 0.2 * part, 0.07 * SIZE[1] / SIZE[0]
        across = numpy.arange(SIZE[0] // 2) / SIZE[0] - x
        down = numpy.arange(SIZE[1] // 2) / SIZE[0] - y
        glow = sum(peak * numpy.outer(numpy.exp(-(down / wide)**2), numpy.exp(-(across / wide)**2))
                   for peak, wide in ((230, 0.02), (50, 0.08)))
        place = picture[:SIZE[1] // 2, :SIZE[0] // 2]
        cv2.add(place, cv2.merge([glow.clip(0, 255).astype(numpy.uint8)] * 3), place)

    def within(self, name, time):
        """For how long that has been happening to the camera."""
        since = time - self.set[name]
        return since if self.set[name] and 0 <= since < TAMPER_LASTS else None

    def cover(self, picture, since):
        if self.set["cover"] == 1:
            picture[:] = 40, 45, 50
            return
        # The hand comes from below within 0.3 s, and goes as fast.
        part = min(since, TAMPER_LASTS - since, 0.3) / 0.3
        edge = (1 - part) * 1.2 - 0.1 + 0.05 * numpy.sin(numpy.arange(SIZE[0]) / SIZE[0] * 9)
        rows = numpy.arange(SIZE[1])[:, None] / SIZE[1]
        share = ((rows - edge) / 0.1).clip(0, 1) if part < 1 else numpy.ones((1, 1))
        hand = numpy.roll(self.hand, round(2 * math.sin(8 * since)), 1)
        picture[:] = picture + share[..., None] * (hand.astype(numpy.float32) - picture)

    def draw_frame(self, time):
        picture = self.look(self.draw_scene(time), time)
        if self.within("turned", time) is not None:
            picture = self.elsewhere.copy()
        covered = self.within("covered", time)
        if covered is not None:
            self.cover(picture, covered)
        picture = self.light_up(picture, time)
        x, y = RANDOM.integers(64, size=2)
        for change, noise in zip((cv2.add, cv2.subtract), self.noise):
            change(picture, noise[y:y + SIZE[1], x:x + SIZE[0]], picture)
        return picture

    def print_truth(self):
        def say(word, *values):
            print(word, *(round(value) for value in values))

        moving = len(self.walkers) + (self.face is not None)
        say("size", *SIZE)
        say("frames", self.seconds * self.set["rate"])
        for crossing in sorted(sum((one.crossings(self.seconds) for one in self.walkers), [])):
            say("cross", *crossing)
        say("moving", moving)
        for begin, end, box, _ in self.objects:
            say("standing", 1000 * begin, 1000 * end, *box)
        for one in self.walkers:
            if one.stops:
                tall, wide = one.tall * SIZE[1], 0.34 * one.tall * SIZE[1]
                say("stood", 1000 * one.begin, 1000 * (one.begin + one.stops),
                    one.place * SIZE[0] - wide / 2, one.feet * SIZE[1] - tall, wide, tall)
        if self.face is not None:
            say("face", 1000 * FACE_COMES, 1000 * self.seconds)
        for cause, name in enumerate(("covered", "turned", "dark"), 1):
            if self.set[name]:
                say("tamper", 1000 * self.set[name], cause)
        if self.set["dark"]:
            say("tamper", 1000 * (self.set["dark"] + TAMPER_LASTS), 3)
        if self.set["shake"]:
            say("allow false", moving / 5)
            say("allow objects", moving / 5)
        if self.set["wall"] or (self.set["stand"] and self.set["walkers"]):
            say("allow objects", moving / 5)  # legs before a wall; who passes one that stands
        if self.set["cloud"]:
            say("allow objects", (self.set["cloud"] + 1) // 2)
        if self.set["night"]:
            say("allow objects", (self.seconds + 3) // 5)
        if self.set["covered"] and self.set["cover"] == 2:  # it moves, too
            say("allow false", 2)
            say("allow objects", 2)


def texture(size, rough):
    """Soft and fine structure, and some edges."""
    width, height = size
    ground = numpy.empty((height, width, 3), numpy.uint8)
    ground[:] = between(80, 150, 3)
    for _ in range(40):
        box = between((-40, -40, 10, 10), (width, height, width / 4, height / 4)).astype(int)
        cv2.rectangle(ground, box, between(60, 170, 3), cv2.FILLED)
    cv2.setRNGSeed(int(RANDOM.integers(1 << 31)))
    grain = cv2.randn(numpy.empty_like(ground), (128, 128, 128), (60, 60, 60))
    grain = cv2.GaussianBlur(grain, None, width / 320)
    return cv2.addWeighted(ground, 1, grain, rough / 2, -64 * rough)


def read_settings(arguments):
    settings = dict(seed=1, seconds=10, rate=25, width=640, height=0, noise=4, light=0.1, grain=1,
                    sway=4, walkers=0, tall=0, pairs=0, stand=0, standing=0, cloud=0, shake=0,
                    night=0, wall=0, door=0, covered=0, turned=0, dark=0, cover=1, face="")
    given = dict(argument.partition("=")[::2] for argument in arguments)
    if not given.keys() <= settings.keys():
        sys.exit(__doc__)
    if "shake" in given:
        settings |= dict(grain=6, sway=0)
    if "night" in given:
        settings |= dict(noise=11)
    return settings | {name: value if name == "face" else float(value)
                       for name, value in given.items()}


if len(sys.argv) < 2:
    sys.exit(__doc__)
SETTINGS = read_settings(sys.argv[2:])
RANDOM = numpy.random.default_rng(int(SETTINGS["seed"]))
SIZE = (int(SETTINGS["width"]), int(SETTINGS["height"] or SETTINGS["width"] * 9 / 16))
PLAIN = {1: 150, 2: 35, 3: 8}  # levels of the wall
SKIN = 0.4 if SETTINGS["night"] else 1

writer = cv2.VideoWriter(sys.argv[1], cv2.VideoWriter_fourcc(*"MJPG"), SETTINGS["rate"], SIZE)
if not writer.isOpened():
    sys.exit(f"make_clip.py: cannot write {sys.argv[1]}")
if SETTINGS["night"]:
    writer.set(cv2.VIDEOWRITER_PROP_QUALITY, 40)
clip = Clip(SETTINGS)
for i in range(round(SETTINGS["seconds"] * SETTINGS["rate"])):
    writer.write(clip.draw_frame(i / SETTINGS["rate"]))
clip.print_truth()
