#include "video/feed.h"

#include "tools/common/printing.h"
#include "util/text.h"

#include <cerrno>
#include <chrono>
#include <cmath>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace va::video
{

namespace
{

constexpr char standard_output[] = "-";

constexpr std::chrono::milliseconds connect_interval{200};

// As the entries of results have them.
constexpr int kind_moving = 3;
constexpr int kind_stationary = 19;

// "LEFT TOP WIDTH HEIGHT", at least a pixel.
std::string text_of(const Box &box)
{
    const long left = std::lround(box.x);
    const long top = std::lround(box.y);
    return formatted("%ld %ld %ld %ld", left, top, std::max(std::lround(box.right()) - left, 1L),
                     std::max(std::lround(box.bottom()) - top, 1L));
}

} // namespace

std::string lines_of(const Observations &observations)
{
    std::string lines = observations.jump ? "jump\n" : "";
    if (observations.tamper)
        lines += formatted("ta 1 %d 0 0\n", *observations.tamper);
    for (const auto &[id, stationary, box] : observations.objects)
        lines += formatted("object %u %d %s\n", id, stationary ? kind_stationary : kind_moving,
                           text_of(box).c_str());
    for (const TrackedObject &face : observations.faces)
        lines += formatted("face %u %s\n", face.id, text_of(face.box).c_str());
    return lines + formatted("picture %u\n", picture_number(observations.time));
}

void Feed::say_once(const std::string &text)
{
    if (text != said_)
        say(text);
    said_ = text;
}

bool Feed::open()
{
    if (path_ == standard_output) {
        fd_ = Fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
        return static_cast<bool>(fd_);
    }
    // Fails with ENXIO while nobody reads the FIFO.
    fd_ = Fd(::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    hopeless_ = (!fd_ && errno == EISDIR) ||
                (fd_ && fstat(fd_.get(), &status) == 0 && !S_ISFIFO(status.st_mode));
    if (hopeless_)
        fd_.reset();
    return static_cast<bool>(fd_);
}

bool Feed::connect()
{
    if (fd_)
        return true;
    if (Clock::now() - tried_ < connect_interval)
        return false;
    tried_ = Clock::now();
    if (open()) {
        if (!said_.empty())
            say_once(path_ + " is read");
        return send(formatted("frame %d %d\n", frame_.width, frame_.height));
    }
    if (hopeless_)
        say_once(path_ + " is not a FIFO");
    else if (errno == ENOENT || errno == ENXIO)
        say_once("nobody reads " + path_ + " yet");
    else
        say_once("cannot open " + path_ + ": " + error_text(errno));
    return false;
}

bool Feed::send(const std::string &text)
{
    if (write_all(fd_.get(), text) == 0)
        return true;
    if (!must_stop()) {
        say_once("nobody reads " + path_ + " any more");
        hopeless_ = path_ == standard_output;
    }
    fd_.reset();
    return false;
}

} // namespace va::video
