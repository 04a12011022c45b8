#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <random>
#include <string>
#include <vector>

// Makes a clip with known content, to judge what was detected in it: a textured ground with noise,
// changing light and a swaying strip; walkers that cross a line down the middle, alone and in pairs
// that meet on it; objects left behind and taken away; a panning face; tampering with the camera.
// What happens is written on standard output, a line each, times in milliseconds, places in pixels:
//     cross TIME 1|2                   a walker's centre crosses the line to the right, to the left
//     width WIDTH
//     moving COUNT
//     standing FROM TO X Y WIDTH HEIGHT
//     face FROM TO
//     tamper TIME CAUSE

namespace
{

constexpr double face_comes = 1; // seconds
constexpr double tamper_lasts = 2;

// In the photograph astronaut.png of Debian's python3-skimage.
const cv::Rect place_of_face(145, 0, 160, 200);

const char usage[] =
    "usage: make_clip FILE.avi [NAME=NUMBER...] [face=IMAGE]\n"
    "seed=1 seconds=10 rate=25 width=640 walkers=0 pairs=0 standing=0 noise=4 light=0.1 sway=4\n"
    "covered=0 turned=0 dark=0: seconds until that happens to the camera, for two seconds\n";

struct Settings {
    std::map<std::string, double> numbers = {
        {"seed", 1},    {"seconds", 10}, {"rate", 25}, {"width", 640}, {"walkers", 0},
        {"pairs", 0},   {"standing", 0}, {"noise", 4}, {"light", 0.1}, {"sway", 4},
        {"covered", 0}, {"turned", 0},   {"dark", 0},
    };
    std::string face;

    double operator[](const std::string &name) const { return numbers.at(name); }
};

bool read_settings(int argc, char **argv, Settings &settings)
{
    for (int i = 2; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        if (equals == std::string::npos)
            return false;
        if (name == "face")
            settings.face = argument.substr(equals + 1);
        else if (settings.numbers.contains(name))
            settings.numbers[name] = std::stod(argument.substr(equals + 1));
        else
            return false;
    }
    return argc >= 2;
}

using Random = std::mt19937;

double between(Random &random, double least, double most)
{
    return std::uniform_real_distribution<>(least, most)(random);
}

cv::Scalar colour(Random &random, double least, double most)
{
    return {between(random, least, most), between(random, least, most),
            between(random, least, most)};
}

// Soft and fine structure, and some edges.
cv::Mat texture(Random &random, cv::Size size)
{
    cv::Mat ground(size, CV_8UC3, colour(random, 80, 150));
    for (int i = 0; i < 40; ++i) {
        const cv::Rect box(static_cast<int>(between(random, -40, size.width)),
                           static_cast<int>(between(random, -40, size.height)),
                           static_cast<int>(between(random, 10, size.width / 4.)),
                           static_cast<int>(between(random, 10, size.height / 4.)));
        cv::rectangle(ground, box, colour(random, 60, 170), cv::FILLED);
    }
    cv::Mat grain(size, CV_8UC3);
    cv::theRNG().state = random();
    cv::randn(grain, cv::Scalar::all(128), cv::Scalar::all(60));
    cv::GaussianBlur(grain, grain, {0, 0}, size.width / 320.);
    cv::addWeighted(ground, 1, grain, 0.5, -64, ground);
    return ground;
}

// A person who walks straight on at an even pace and crosses the middle at a known time.
struct Walker {
    double crosses; // seconds
    double speed;   // widths of the picture a second; negative: to the left
    double feet;    // where they are, share of the height
    double height;  // share of the height
    cv::Scalar coat;
    cv::Scalar trousers;

    double x_at(double time) const { return 0.5 + speed * (time - crosses); }
};

void draw(cv::Mat &picture, const Walker &walker, double time)
{
    const double tall = walker.height * picture.rows;
    const double x = walker.x_at(time) * picture.cols;
    const double feet = walker.feet * picture.rows;
    if (x < -tall || x > picture.cols + tall)
        return;
    const double stride = std::sin(2 * std::numbers::pi * 1.8 * time) * 0.12 * tall;
    const auto point = [&](double right, double up) {
        return cv::Point(cvRound(x + right), cvRound(feet - up * tall));
    };
    const int limb = std::max(cvRound(0.09 * tall), 1);
    cv::line(picture, point(0, 0.48), point(stride, 0), walker.trousers, limb, cv::LINE_AA);
    cv::line(picture, point(0, 0.48), point(-stride, 0), walker.trousers, limb, cv::LINE_AA);
    cv::ellipse(picture, point(0, 0.63), {cvRound(0.14 * tall), cvRound(0.22 * tall)}, 0, 0, 360,
                walker.coat, cv::FILLED, cv::LINE_AA);
    cv::line(picture, point(-0.08 * tall, 0.7), point(0.1 * tall, 0.55), walker.trousers,
             limb / 2 + 1);
    cv::circle(picture, point(0, 0.92), cvRound(0.075 * tall), {140, 170, 210}, cv::FILLED,
               cv::LINE_AA);
}

struct Object {
    double from;
    double to;
    cv::Rect box;
    cv::Mat image;
};

struct Clip {
    cv::Size size;
    cv::Mat ground;
    cv::Mat elsewhere; // the view of a turned camera
    std::vector<Walker> walkers;
    std::vector<Object> objects;
    cv::Mat face;
};

Walker make_walker(Random &random, double crosses, bool to_right)
{
    const bool dark = between(random, 0, 1) < 0.6;
    const double speed = between(random, 0.18, 0.32);
    return {crosses,
            to_right ? speed : -speed,
            between(random, 0.62, 0.95),
            between(random, 0.2, 0.32),
            dark ? colour(random, 0, 50) : colour(random, 190, 255),
            dark ? colour(random, 10, 60) : colour(random, 180, 230)};
}

// They cross the line one after the other, so that each crossing has a time of its own. Two of a
// pair do so within a third of a second, from both sides and one before the other.
std::vector<Walker> make_walkers(const Settings &settings, Random &random)
{
    const int pairs = static_cast<int>(settings["pairs"]);
    const int moments = static_cast<int>(settings["walkers"]) - pairs;
    const int spacing = std::max(moments / std::max(pairs, 1), 1); // of pairs
    const double first = 3;
    const double gap = (settings["seconds"] - first - 0.5) / std::max(moments, 1);
    std::vector<Walker> walkers;
    for (int i = 0; i < moments; ++i) {
        const double crosses = first + gap * (i + between(random, 0, 0.3));
        walkers.push_back(make_walker(random, crosses, i % 2 == 0));
        if (i % spacing == 0 && i / spacing < pairs) {
            Walker other = make_walker(random, crosses + 0.3, i % 2 == 1);
            other.feet = walkers.back().feet + 0.01;
            walkers.push_back(other);
        }
    }
    return walkers;
}

// Along the top, where nobody walks in front of them.
std::vector<Object> make_objects(const Settings &settings, Random &random, cv::Size size)
{
    const int count = static_cast<int>(settings["standing"]);
    std::vector<Object> objects;
    for (int i = 0; i < count; ++i) {
        const double width = between(random, 0.05, 0.09);
        const double height = between(random, 0.1, 0.14);
        const double x = (i + 0.5) / count * 0.8 + 0.05;
        const cv::Rect box(cvRound(x * size.width), cvRound(0.05 * size.height),
                           cvRound(width * size.width), cvRound(height * size.height));
        cv::Mat image(box.size(), CV_8UC3,
                      i % 2 ? colour(random, 0, 40) : colour(random, 200, 255));
        cv::rectangle(image, {2, 2, box.width - 4, box.height / 3}, colour(random, 0, 255), 2);
        const double from = 1.5 + i * 0.5;
        objects.push_back({from, settings["seconds"] - 1.2, box, image});
    }
    return objects;
}

// A strip of swaying leaves.
void sway(cv::Mat &picture, const cv::Mat &ground, double by)
{
    const int width = picture.cols / 16;
    const int x = picture.cols - 2 * width;
    const int shift = cvRound(by);
    ground(cv::Rect(x + shift, 0, width, picture.rows / 3))
        .copyTo(picture(cv::Rect(x, 0, width, picture.rows / 3)));
}

bool within(double time, double begin)
{
    return begin > 0 && time >= begin && time < begin + tamper_lasts;
}

// Right of the line, above the walkers.
void draw_face(cv::Mat &picture, const cv::Mat &face, double part)
{
    const int room = picture.cols / 2 - 2 * face.cols;
    const cv::Rect place(picture.cols / 2 + face.cols + cvRound(room * part), picture.rows / 50,
                         face.cols, face.rows);
    cv::Mat mask = cv::Mat::zeros(face.size(), CV_8U);
    cv::ellipse(mask, cv::Point(face.size() / 2), face.size() / 2, 0, 0, 360, 255, cv::FILLED);
    face.copyTo(picture(place), mask);
}

cv::Mat draw_frame(const Clip &clip, const Settings &settings, double time)
{
    cv::Mat picture = clip.ground.clone();
    sway(picture, clip.ground, settings["sway"] * (1 + std::sin(5 * time)) * clip.size.width / 640);
    for (const Object &object : clip.objects) {
        if (time >= object.from && time < object.to)
            object.image.copyTo(picture(object.box));
    }
    if (!clip.face.empty() && time >= face_comes)
        draw_face(picture, clip.face, time / settings["seconds"]);
    for (const Walker &walker : clip.walkers)
        draw(picture, walker, time);
    if (within(time, settings["turned"]))
        clip.elsewhere.copyTo(picture);
    if (within(time, settings["covered"]))
        picture.setTo(cv::Scalar(40, 45, 50));
    const double light = 1 + settings["light"] * std::sin(0.7 * time);
    picture.convertTo(picture, -1, within(time, settings["dark"]) ? 0.3 * light : light);
    return picture;
}

int in_ms(double seconds)
{
    return cvRound(1000 * seconds);
}

void print_truth(const Clip &clip, const Settings &settings)
{
    for (const Walker &walker : clip.walkers)
        std::printf("cross %d %d\n", in_ms(walker.crosses), walker.speed > 0 ? 1 : 2);
    const std::size_t moving = clip.walkers.size() + !clip.face.empty();
    std::printf("width %d\nmoving %zu\n", clip.size.width, moving);
    for (const Object &object : clip.objects)
        std::printf("standing %d %d %d %d %d %d\n", in_ms(object.from), in_ms(object.to),
                    object.box.x, object.box.y, object.box.width, object.box.height);
    if (!clip.face.empty())
        std::printf("face %d %d\n", in_ms(face_comes), in_ms(settings["seconds"]));
    const std::pair<const char *, int> causes[] = {{"covered", 1}, {"turned", 2}, {"dark", 3}};
    for (const auto &[name, cause] : causes) {
        if (settings[name] > 0)
            std::printf("tamper %d %d\n", in_ms(settings[name]), cause);
    }
    if (settings["dark"] > 0)
        std::printf("tamper %d 3\n", in_ms(settings["dark"] + tamper_lasts));
}

} // namespace

int main(int argc, char **argv)
{
    Settings settings;
    if (!read_settings(argc, argv, settings)) {
        std::fputs(usage, stderr);
        return EXIT_FAILURE;
    }
    Random random(static_cast<unsigned>(settings["seed"]));
    const int width = static_cast<int>(settings["width"]);
    Clip clip;
    clip.size = {width, width * 9 / 16};
    clip.ground = texture(random, clip.size);
    clip.elsewhere = texture(random, clip.size);
    clip.walkers = make_walkers(settings, random);
    clip.objects = make_objects(settings, random, clip.size);
    if (!settings.face.empty()) {
        const cv::Mat image = cv::imread(settings.face)(place_of_face);
        const double factor = 0.3 * clip.size.height / image.rows;
        cv::resize(image, clip.face, {}, factor, factor, cv::INTER_AREA);
    }
    cv::VideoWriter writer(argv[1], cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), settings["rate"],
                           clip.size);
    if (!writer.isOpened()) {
        std::fprintf(stderr, "make_clip: cannot write %s\n", argv[1]);
        return EXIT_FAILURE;
    }
    const int frames = cvRound(settings["seconds"] * settings["rate"]);
    for (int i = 0; i < frames; ++i) {
        cv::Mat picture = draw_frame(clip, settings, i / settings["rate"]);
        cv::Mat noise(picture.size(), CV_16SC3);
        cv::randn(noise, cv::Scalar::all(0), cv::Scalar::all(settings["noise"]));
        cv::add(picture, noise, picture, cv::noArray(), CV_8U);
        writer.write(picture);
    }
    print_truth(clip, settings);
}
