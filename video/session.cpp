#include "video/session.h"

#include "tools/common/printing.h"
#include "util/text.h"
#include "video/analysis.h"
#include "video/feed.h"
#include "video/still.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <opencv2/core/utility.hpp>

#include <unistd.h>

namespace va::video
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds frame_timeout{100}; // bounds the delay of a stop request
constexpr milliseconds end_timeout{500};   // of the read in progress
constexpr std::size_t most_latencies = 100'000;

std::unique_ptr<FaceDetector> start_faces()
{
    cv::CascadeClassifier cascade;
    if (!cascade.load(VA_FACE_CASCADE)) {
        say("no faces: cannot read " VA_FACE_CASCADE ", of the package opencv-data");
        return nullptr;
    }
    return std::make_unique<FaceDetector>(cascade);
}

class Session
{
public:
    explicit Session(const Options &options)
        : options_(options),
          feed_(options.feed, options.frame),
          faces_(options.faces ? start_faces() : nullptr),
          analysis_(options.frame, faces_.get(), options.reader.fast),
          still_(options.still, options.frame),
          reader_(options.reader)
    {
    }

    int run()
    {
        int status = EXIT_SUCCESS;
        try {
            while (!must_stop() && step()) {
            }
        } catch (const std::exception &error) {
            say(error.what());
            status = EXIT_FAILURE;
        }
        const bool ended = reader_.stop(end_timeout);
        print_summary();
        if (!ended)
            _exit(status); // a read that does not end is abandoned with the process
        return status;
    }

private:
    void process(const Frame &frame)
    {
        if (frame.restarts)
            analysis_.reset();
        const Observations observations = analysis_.analyse(frame.image, frame.time);
        if (feed_.connect())
            feed_.send(lines_of(observations));
        latencies_ms_.resize(std::min(frames_ + 1, most_latencies));
        latencies_ms_[frames_++ % most_latencies] =
            std::chrono::duration<float, std::milli>(Clock::now() - frame.arrival).count();
        still_.update(analysis_.picture(), frame.time);
    }

    void print_summary()
    {
        if (frames_ == 0)
            return;
        std::ranges::sort(latencies_ms_);
        const std::size_t last = latencies_ms_.size() - 1;
        say(formatted("%zu frames; frame to feed, ms: p50 %.1f, p99 %.1f", frames_,
                      latencies_ms_[last / 2], latencies_ms_[last * 99 / 100]));
    }

    // Nothing of a video is lost to a reader that is not there yet, nor to one that is away for a
    // while when each frame counts. Otherwise the analysis goes on without one, so that the
    // background is known when it returns. False at the end.
    bool step()
    {
        const bool ended = reader_.has_ended(); // but for a frame that is to be taken
        if (!feed_.connect() && (frames_ == 0 || options_.reader.fast)) {
            std::this_thread::sleep_for(frame_timeout);
            return true;
        }
        const std::optional<Frame> frame = reader_.take(frame_timeout);
        if (frame)
            process(*frame);
        return frame || !ended;
    }

    const Options &options_;
    Feed feed_;
    std::unique_ptr<FaceDetector> faces_;
    Analysis analysis_;
    StillFile still_;
    Reader reader_;
    std::size_t frames_ = 0;          // analysed
    std::vector<float> latencies_ms_; // of the last frames, a ring once it is full
};

} // namespace

int run_session(const Options &options)
{
    cv::setNumThreads(1);
    return Session(options).run();
}

} // namespace va::video
