#include "video/feed.h"

#include "tools/common/printing.h"
#include "util/text.h"

#include <cmath>
#include <stdexcept>

namespace va::video
{

namespace
{

constexpr char standard_output[] = "-";

constexpr std::chrono::milliseconds connect_interval{200};

// As the entries of results have them.
constexpr int kind_moving = 3, kind_stationary = 19;

// "LEFT TOP WIDTH HEIGHT", at least a pixel.
std::string text_of(const Box &box)
{
    const long left = std::lround(box.x), top = std::lround(box.y);
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

void Feed::report(const std::string &fault)
{
    if (std::exchange(reported_, fault) != fault)
        say(fault);
}

bool Feed::connect()
{
    if (fd_)
        return true;
    if (Clock::now() - tried_ < connect_interval)
        return false;
    tried_ = Clock::now();
    struct stat status = {};
    if (path_ == standard_output) {
        fd_ = Fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    } else if (stat(path_.c_str(), &status) == 0 && !S_ISFIFO(status.st_mode)) {
        throw std::runtime_error(path_ + " is not a FIFO");
    } else {
        fd_ = Fd(open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    }
    if (!fd_) {
        report(errno == ENOENT || errno == ENXIO
                   ? "nobody reads " + path_
                   : "cannot open " + path_ + ": " + error_text(errno));
        return false;
    }
    if (!std::exchange(reported_, "").empty())
        say(path_ + " is read");
    return send(formatted("frame %d %d\n", frame_.width, frame_.height));
}

bool Feed::send(const std::string &text)
{
    const int error = write_all(fd_.get(), text);
    if (error == 0)
        return true;
    fd_.reset();
    if (must_stop())
        return false;
    if (path_ == standard_output)
        throw std::runtime_error("cannot write to standard output: " + error_text(error));
    report("nobody reads " + path_);
    return false;
}

} // namespace va::video
