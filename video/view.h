#pragma once

#include "video/box.h"

#include <opencv2/core.hpp>

// Comparison of pictures, grey, 32-bit and of one size, with the view that the camera usually has.
namespace va::video
{

// How far `now` is shifted against `view`, pixels; 0 when that cannot be told, for instance before
// a plain wall. What moves within the picture, and the light, count for little. A shift of up to
// two pixels is found.
Point shift_between(const cv::Mat &view, const cv::Mat &now);

// Shifts `picture` back, into `steady`. Where nothing is known of the picture then, at its edges,
// `steady` is left as it was.
void shift_back(const cv::Mat &picture, Point shift, cv::Mat &steady);

// 255 where `now` has the structure of `view` in another light: a shadow or a beam passes, but no
// object.
cv::Mat lit_otherwise(const cv::Mat &view, const cv::Mat &now);

} // namespace va::video
