#include "video/session.h"

#include "tools/common/printing.h"
#include "tools/common/stop.h"
#include "util/text.h"
#include "video/analysis.h"
#include "video/feed.h"
#include "video/still.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <opencv2/core/utility.hpp>
#include <optional>
#include <thread>
#include <vector>

#include <unistd.h>

namespace va::video
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds frame_timeout{100}; // bounds the delay of a stop request
constexpr milliseconds end_timeout{500};   // of the read in progress

std::unique_ptr<FaceDetector> start_faces(bool wanted)
{
    if (!wanted)
        return nullptr;
    cv::CascadeClassifier cascade;
    if (!cascade.load(VA_FACE_CASCADE)) {
        say("no faces: cannot read " VA_FACE_CASCADE ", of the package opencv-data");
        return nullptr;
    }
    return std::make_unique<FaceDetector>(cascade);
}

// What is printed of the work.
class Progress
{
public:
    // A frame was reported, `latency` after its arrival.
    void add(Clock::duration latency);

    // Prints how far a file has been read, every ten seconds.
    void print(const Reader::State &reader);

    // Prints the count of the frames, and percentiles of their latency.
    void print_summary() const;

private:
    std::vector<float> latencies_ms_; // a ring once it is full
    int frames_ = 0;                  // reported
    Clock::time_point printed_ = Clock::now();
    int printed_read_ = 0;
};

void Progress::add(Clock::duration latency)
{
    constexpr std::size_t most = 100'000;
    const float ms = std::chrono::duration<float, std::milli>(latency).count();
    if (latencies_ms_.size() < most)
        latencies_ms_.push_back(ms);
    else
        latencies_ms_[static_cast<std::size_t>(frames_) % most] = ms;
    ++frames_;
}

void Progress::print(const Reader::State &reader)
{
    constexpr double interval = 10; // seconds
    const double passed = std::chrono::duration<double>(Clock::now() - printed_).count();
    if (reader.total == 0 || passed < interval)
        return;
    // A file that is looped has begun again when there are fewer.
    const int read = reader.read - (reader.read > printed_read_ ? printed_read_ : 0);
    const double rate = std::max(read, 1) / passed;
    const int left = static_cast<int>(std::max(reader.total - reader.read, 0) / rate);
    say(formatted("frame %d of %d, %.0f frames/s, %d:%02d left", reader.read, reader.total, rate,
                  left / 60, left % 60));
    printed_ = Clock::now();
    printed_read_ = reader.read;
}

void Progress::print_summary() const
{
    if (frames_ == 0)
        return;
    std::vector<float> sorted = latencies_ms_;
    std::ranges::sort(sorted);
    const auto quantile = [&](double share) {
        return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
    };
    say(formatted("%d frames; frame to feed, ms: p50 %.1f, p99 %.1f, most %.1f", frames_,
                  quantile(0.5), quantile(0.99), quantile(1)));
}

class Session
{
public:
    explicit Session(const Options &options)
        : options_(options),
          feed_(options.feed, options.frame),
          faces_(start_faces(options.faces)),
          analysis_(options.frame, faces_.get(), options.reader.fast),
          reader_(options.reader),
          still_(options.still, options.frame)
    {
    }

    int run();

private:
    bool step();
    void process(const Frame &frame);

    const Options &options_;
    Feed feed_;
    std::unique_ptr<FaceDetector> faces_;
    Analysis analysis_;
    Reader reader_;
    StillFile still_;
    Progress progress_;
    bool was_connected_ = false;
};

void Session::process(const Frame &frame)
{
    if (frame.restarts)
        analysis_.reset();
    const Observations observations = analysis_.analyse(frame.image, frame.time);
    if (feed_.connect())
        feed_.send(lines_of(observations));
    progress_.add(Clock::now() - frame.arrival);
    still_.update(analysis_.picture(), frame.time);
}

// Nothing of a video is lost to a reader that is not there yet, nor to one that is away for a while
// when each frame counts. Otherwise the analysis goes on without one, so that the background is
// known when it returns. False at the end.
bool Session::step()
{
    const Reader::State state = reader_.state();
    const bool connected = feed_.connect();
    was_connected_ |= connected;
    if (!connected && (!was_connected_ || options_.reader.fast)) {
        std::this_thread::sleep_for(frame_timeout);
        return !state.failed;
    }
    progress_.print(state);
    const std::optional<Frame> frame = reader_.take(frame_timeout);
    if (frame)
        process(*frame);
    return frame || !state.ended;
}

int Session::run()
{
    while (!must_stop() && !feed_.is_hopeless() && step()) {
    }
    const bool ended = reader_.stop(end_timeout);
    progress_.print_summary();
    const bool failed = feed_.is_hopeless() || reader_.state().failed;
    const int status = failed ? EXIT_FAILURE : EXIT_SUCCESS;
    if (!ended)
        _exit(status); // a read that does not end is abandoned with the process
    return status;
}

} // namespace

int run_session(const Options &options)
{
    cv::setNumThreads(1);
    return Session(options).run();
}

} // namespace va::video
