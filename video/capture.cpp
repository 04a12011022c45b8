#include "video/capture.h"

#include <array>
#include <cmath>
#include <string_view>
#include <vector>

namespace
{

constexpr int open_limit_ms = 10'000;
constexpr int read_limit_ms = 5'000;

constexpr double usual_rate = 25; // of a video that does not tell
constexpr double highest_rate = 240;

bool is_device(const std::string &source)
{
    return source.starts_with("/dev/");
}

bool is_url(const std::string &source)
{
    return source.find("://") != std::string::npos;
}

bool is_web(const std::string &source)
{
    return source.starts_with("http://") || source.starts_with("https://");
}

int whole(double number)
{
    constexpr double most = 1e9;
    return number > 0 && number < most ? static_cast<int>(number) : 0;
}

} // namespace

bool is_live(const std::string &source)
{
    return is_device(source) || is_url(source);
}

Capture::Capture(const cv::VideoCapture &video, bool live)
    : video_(video),
      live_(live),
      rate_(video_.get(cv::CAP_PROP_FPS)),
      frames_(live ? 0 : whole(video_.get(cv::CAP_PROP_FRAME_COUNT)))
{
    if (!(rate_ >= 1 && rate_ <= highest_rate))
        rate_ = usual_rate;
}

std::optional<Capture> Capture::open(const std::string &source)
{
    cv::VideoCapture video;
    if (is_device(source)) {
        video.open(source, cv::CAP_V4L2);
    } else {
        std::vector<int> limits;
        if (is_url(source))
            limits = {cv::CAP_PROP_OPEN_TIMEOUT_MSEC, open_limit_ms, cv::CAP_PROP_READ_TIMEOUT_MSEC,
                      read_limit_ms};
        video.open(source, cv::CAP_FFMPEG, limits);
    }
    if (!video.isOpened())
        return {};
    // A recording on a web server has a length.
    const bool recorded = is_web(source) && whole(video.get(cv::CAP_PROP_FRAME_COUNT)) > 0;
    return Capture(video, ::is_live(source) && !recorded);
}

// A raw stream has no times.
VideoTime Capture::time() const
{
    const double told = video_.get(cv::CAP_PROP_POS_MSEC);
    const double before = video_.get(cv::CAP_PROP_POS_FRAMES) - 1;
    return std::llround(told > 0 ? told : before * 1000 / rate_);
}
