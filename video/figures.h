#pragma once

#include "video/clocks.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

// What the looks cost, and how long they took.

enum class Step { scale, tamper, moving, standing, tracks, faces, feed, still };
inline constexpr std::size_t STEP_COUNT = 8;

class Figures
{
public:
    using Duration = std::chrono::nanoseconds;

    // Between these the calling thread works on a look; what it used since the last call of either
    // was for `step`.
    void begin() { lap_ = thread_time(); }
    void lap(Step step)
    {
        const Duration now = thread_time();
        spent_[static_cast<std::size_t>(step)] += now - lap_;
        lap_ = now;
    }

    // A look was told `taken` after its frame had come.
    void looked(Duration taken);

    int looks() const { return looks_; }

    // Several lines: times of the processor by step and look, a frame's way through the program.
    // `reader` and `faces`: what their threads used, the decoder's with the reader's.
    std::string text(int frames, Duration reader, int face_looks, Duration faces) const;

private:
    static constexpr std::size_t last_of_all = 100'000; // looks, whose times are kept

    std::array<Duration, STEP_COUNT> spent_{};
    Duration lap_{};
    int looks_ = 0;
    std::vector<float> taken_ms_; // a ring once it is full
};
