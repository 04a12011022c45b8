#include "video/still.h"

#include "video/say.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <system_error>
#include <utility>

namespace
{

constexpr int quality = 80;

// With a comment behind the two bytes with which each JPEG begins.
bool replace_file(const std::string &path, const std::string &jpeg, const std::string &comment)
{
    constexpr std::size_t start = 2;
    const std::string fresh = path + ".new";
    std::ofstream file(fresh, std::ios::binary);
    file << jpeg.substr(0, start) << "\xff\xfe" << '\0' << static_cast<char>(comment.size() + 2)
         << comment << jpeg.substr(start);
    file.close();
    return file && std::rename(fresh.c_str(), path.c_str()) == 0;
}

} // namespace

Still::Still(std::string path, FrameSize frame) : path_(std::move(path)), frame_(frame) {}

void Still::show(const cv::Mat &picture, std::uint32_t number)
{
    const float width = static_cast<float>(std::max(picture.cols, picture.rows));
    const cv::Size size(cvRound(width), cvRound(width * static_cast<float>(frame_.height) /
                                                static_cast<float>(frame_.width)));
    const Box place =
        Framing({size.width, size.height}, {picture.cols, picture.rows})
            .framed({0, 0, static_cast<float>(picture.cols), static_cast<float>(picture.rows)});
    canvas_.create(size, picture.type());
    canvas_.setTo(cv::Scalar::all(0));
    const cv::Rect inside =
        cv::Rect(cvRound(place.x), cvRound(place.y), cvRound(place.width), cvRound(place.height)) &
        cv::Rect({0, 0}, size);
    cv::resize(picture, canvas_(inside), inside.size());
    std::vector<unsigned char> jpeg;
    cv::imencode(".jpg", canvas_, jpeg, {cv::IMWRITE_JPEG_QUALITY, quality});
    const bool failed =
        !replace_file(path_, {jpeg.begin(), jpeg.end()}, "picture " + std::to_string(number));
    if (failed && !failed_)
        say("cannot write %s: %s", path_.c_str(), std::generic_category().message(errno).c_str());
    failed_ = failed;
}
