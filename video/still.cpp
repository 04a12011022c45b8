#include "video/still.h"

#include "tools/common/printing.h"
#include "util/file.h"
#include "util/text.h"

#include <cerrno>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace va::video
{

void StillFile::write(const cv::Mat &picture, std::uint32_t number)
{
    constexpr int quality = 80;
    const int width = std::max(picture.cols, picture.rows);
    const FrameSize shown = {picture.cols, picture.rows};
    const cv::Size size(width,
                        cvRound(static_cast<float>(width) * static_cast<float>(frame_.height) /
                                static_cast<float>(frame_.width)));
    const Box place = in_frame(shown.extent(), {size.width, size.height}, shown);
    canvas_.create(size, picture.type());
    canvas_.setTo(cv::Scalar::all(0));
    const cv::Rect inside =
        cv::Rect(cvRound(place.x), cvRound(place.y), cvRound(place.width), cvRound(place.height)) &
        cv::Rect({0, 0}, size);
    cv::resize(picture, canvas_(inside), inside.size());
    std::vector<unsigned char> jpeg;
    cv::imencode(".jpg", canvas_, jpeg, {cv::IMWRITE_JPEG_QUALITY, quality});
    // A comment's segment, behind the two bytes with which each JPEG begins.
    const std::string text = "picture " + std::to_string(number);
    const std::string comment =
        std::string("\xff\xfe\0", 3) + static_cast<char>(text.size() + 2) + text;
    jpeg.insert(jpeg.begin() + 2, comment.begin(), comment.end());
    const bool failed =
        replace_file(path_, {reinterpret_cast<const char *>(jpeg.data()), jpeg.size()}) != 0;
    if (failed && !failed_)
        say("cannot write " + path_ + ": " + error_text(errno));
    failed_ = failed;
}

} // namespace va::video
