#include "video/figures.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include <sys/resource.h>

namespace
{

constexpr std::array<const char *, STEP_COUNT> names = {"scale",  "tamper", "moving", "standing",
                                                        "tracks", "faces",  "feed",   "still"};

[[gnu::format(printf, 2, 3)]] void add(std::string &text, const char *format, ...)
{
    std::array<char, 200> line;
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    text += line.data();
}

double ms_each(Figures::Duration spent, int count)
{
    return std::chrono::duration<double, std::milli>(spent).count() / std::max(count, 1);
}

float quantile(std::vector<float> values, double share)
{
    const auto rank = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::ranges::nth_element(values, values.begin() + rank);
    return values[static_cast<std::size_t>(rank)];
}

long peak_kb()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

void Figures::looked(Duration taken)
{
    const float ms = std::chrono::duration<float, std::milli>(taken).count();
    if (taken_ms_.size() < last_of_all)
        taken_ms_.push_back(ms);
    else
        taken_ms_[static_cast<std::size_t>(looks_) % last_of_all] = ms;
    ++looks_;
}

std::string Figures::text(int frames, Duration reader, int face_looks, Duration faces) const
{
    std::string text;
    add(text, "processor, ms a frame: read %.2f (%d frames)\n", ms_each(reader, frames), frames);
    add(text, "processor, ms a look:");
    for (std::size_t i = 0; i < STEP_COUNT; ++i)
        add(text, " %s %.2f", names[i], ms_each(spent_[i], looks_));
    add(text, " (%d looks)\n", looks_);
    if (face_looks)
        add(text, "processor, ms a look for faces: %.1f (%d looks)\n", ms_each(faces, face_looks),
            face_looks);
    if (!taken_ms_.empty())
        add(text, "frame to feed, ms: p50 %.1f, p99 %.1f, most %.1f\n", quantile(taken_ms_, 0.5),
            quantile(taken_ms_, 0.99), quantile(taken_ms_, 1));
    add(text, "memory, kB at most: %ld\n", peak_kb());
    return text;
}
