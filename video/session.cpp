#include "video/session.h"

#include "video/analysis.h"
#include "video/feed.h"
#include "video/progress.h"
#include "video/reader.h"
#include "video/say.h"
#include "video/still.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <opencv2/core/utility.hpp>
#include <optional>
#include <thread>

#include <unistd.h>

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds look_wait{100}; // the bound on the delay of a stop request
constexpr milliseconds connect_interval{200};
constexpr milliseconds end_wait{500}; // for a read that goes on just now
constexpr VideoTime still_interval = 60;

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "written by a signal handler");

std::unique_ptr<FaceThread> start_faces(const Options &options)
{
    if (!options.faces)
        return nullptr;
    cv::CascadeClassifier cascade;
    if (!cascade.load(VA_FACE_CASCADE)) {
        say("no faces: cannot read %s, of the package opencv-data", VA_FACE_CASCADE);
        return nullptr;
    }
    return std::make_unique<FaceThread>(cascade);
}

class Session
{
public:
    explicit Session(const Options &options)
        : options_(options),
          feed_(options.feed, [] { return stop_requested.load(); }),
          faces_(start_faces(options)),
          analysis_(options.frame, faces_.get(), options.fast, figures_),
          reader_({options.source, options.loop, options.fast, options.rate})
    {
        if (!options.still.empty())
            still_.emplace(options.still, options.frame);
    }

    int run();

private:
    bool is_connected();
    bool look_once();
    void look(const Frame &frame);
    void print_figures();
    void leave(int status);

    const Options &options_;
    Figures figures_;
    Feed feed_;
    std::unique_ptr<FaceThread> faces_;
    Analysis analysis_;
    Reader reader_;
    std::optional<Still> still_;
    Progress progress_;
    Clock::time_point tried_; // to connect
    VideoTime shown_ = -still_interval;
    bool was_connected_ = false;
};

bool Session::is_connected()
{
    if (feed_.is_connected())
        return true;
    if (Clock::now() - tried_ < connect_interval)
        return false;
    tried_ = Clock::now();
    was_connected_ |= feed_.connect() && feed_.send(frame_line(options_.frame));
    return feed_.is_connected();
}

void Session::look(const Frame &frame)
{
    figures_.begin();
    if (frame.anew)
        analysis_.begin_anew();
    const Observations observations = analysis_.look(frame.picture, frame.time);
    if (is_connected())
        feed_.send(lines_of(observations));
    figures_.lap(Step::feed);
    figures_.looked(Clock::now() - frame.come);
    if (still_ && frame.time - shown_ >= still_interval) {
        still_->show(analysis_.picture(), picture_number(frame.time));
        shown_ = frame.time;
    }
    figures_.lap(Step::still);
}

// Nothing of a video is lost to a reader that is not there yet, nor to one that is away for a while
// when each frame counts. Otherwise looks go on without one, so that the background is known when
// it is back. False when there is nothing left to look at.
bool Session::look_once()
{
    const Reader::State state = reader_.state();
    if (!is_connected() && (!was_connected_ || options_.fast)) {
        std::this_thread::sleep_for(look_wait);
        return !state.failed && !feed_.is_hopeless();
    }
    progress_.show(state, figures_.looks());
    const std::optional<Frame> frame = reader_.take(look_wait);
    if (frame)
        look(*frame);
    return frame || !state.ended;
}

int Session::run()
{
    while (!stop_requested && look_once()) {
    }
    reader_.stop();
    print_figures();
    const bool failed = feed_.is_hopeless() || reader_.state().failed;
    const int status = failed ? EXIT_FAILURE : EXIT_SUCCESS;
    leave(status);
    return status;
}

void Session::print_figures()
{
    progress_.end_line();
    if (figures_.looks() == 0)
        return;
    const Reader::State state = reader_.state();
    const FaceThread::Figures faces = faces_ ? faces_->figures() : FaceThread::Figures{};
    // The decoder has threads of its own.
    const auto reading = process_time() - thread_time() - faces.spent;
    std::fputs(figures_.text(state.all, reading, faces.looks, faces.spent).c_str(), stderr);
}

// A read that does not end is left behind with the process.
void Session::leave(int status)
{
    const Clock::time_point end = Clock::now() + end_wait;
    while (!reader_.state().ended) {
        if (Clock::now() > end)
            _exit(status);
        std::this_thread::sleep_for(milliseconds(10));
    }
}

} // namespace

void request_stop()
{
    stop_requested = true;
}

int run_session(const Options &options)
{
    cv::setNumThreads(options.threads);
    return Session(options).run();
}
