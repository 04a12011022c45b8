#include "video/still.h"

#include "tools/common/printing.h"
#include "util/file.h"
#include "util/text.h"
#include "video/feed.h"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace va::video
{

void StillFile::update(const cv::Mat &picture, VideoTime time)
{
    if (!path_ || time < due_)
        return;
    due_ = time + interval;
    constexpr int quality = 80;
    const double shrink = static_cast<double>(std::max(picture.cols, picture.rows)) /
                          std::max(frame_.width, frame_.height);
    const cv::Size size(std::max(cvRound(frame_.width * shrink), 1),
                        std::max(cvRound(frame_.height * shrink), 1));
    const Box pixel =
        in_frame({0, 0, 1, 1}, {size.width, size.height}, {picture.cols, picture.rows});
    const cv::Matx23d place(pixel.width, 0, pixel.x, 0, pixel.height, pixel.y);
    cv::Mat framed = picture;
    if (size != picture.size())
        cv::warpAffine(picture, framed, place, size);
    std::vector<unsigned char> jpeg;
    cv::imencode(".jpg", framed, jpeg, {cv::IMWRITE_JPEG_QUALITY, quality});
    // A comment's segment, behind the two bytes with which each JPEG begins.
    const std::string text = "picture " + std::to_string(picture_number(time));
    const std::string comment =
        std::string("\xff\xfe\0", 3) + static_cast<char>(text.size() + 2) + text;
    jpeg.insert(jpeg.begin() + 2, comment.begin(), comment.end());
    const bool failed =
        replace_file(*path_, {reinterpret_cast<const char *>(jpeg.data()), jpeg.size()}) != 0;
    if (failed && !failed_)
        say("cannot write " + *path_ + ": " + error_text(errno));
    failed_ = failed;
}

} // namespace va::video
