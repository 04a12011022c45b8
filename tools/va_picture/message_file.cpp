#include "tools/va_picture/message_file.h"

#include "tools/va_picture/page_text.h"
#include "util/file.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace va::picture
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds shortest_pause{50}; // between two writes
constexpr milliseconds longest_pause{900};
// The news go back to the whole before the last one: who looks at them this often misses nothing.
constexpr milliseconds whole_interval{250};
constexpr milliseconds frames_kept{2000};
constexpr std::size_t max_frame_bytes = 1'000'000;
constexpr std::size_t max_events = 100;
constexpr int still_files = 8; // so that one that is shown is not replaced yet

std::int64_t milliseconds_now()
{
    return std::chrono::floor<milliseconds>(std::chrono::system_clock::now())
        .time_since_epoch()
        .count();
}

void replace(const std::string &path, const std::string &content)
{
    if (replace_file(path, content) != 0)
        throw_file_error(path);
}

std::string content_of(const std::string &payload)
{
    return R"("payload":)" + (payload.empty() ? "null" : payload);
}

} // namespace

MessageFile::MessageFile(const std::string &page, double pace)
    : base_(std::filesystem::path(page).replace_extension()), pace_(pace), run_(milliseconds_now())
{
    std::string text;
    for (const char *const part : PAGE_TEXT)
        text += part;
    replace(page, text);
}

void MessageFile::event(const std::string &topic, const std::string &payload, bool retained)
{
    ++number_;
    events_.push_back(message(topic, false, content_of(payload)));
    if (events_.size() > max_events)
        events_.pop_front();
    if (retained)
        set_state(topic, content_of(payload));
}

void MessageFile::state(const std::string &topic, const std::string &payload)
{
    const auto known = states_.find(topic);
    const std::string content = content_of(payload);
    if (known == states_.end() ? payload.empty() : known->second.content == content)
        return;
    ++number_;
    set_state(topic, content);
}

bool MessageFile::frame(const std::string &topic, const std::string &payload,
                        std::optional<std::uint32_t>)
{
    ++number_;
    frames_.push_back({message(topic, false, content_of(payload)), now_});
    frame_bytes_ += frames_.back().message.text.size();
    drop_old_frames();
    return true;
}

void MessageFile::still(const std::string &topic, const std::string &jpeg)
{
    if (jpeg.empty()) {
        state(topic, "");
        return;
    }
    const std::string file = base_ + '.' + std::to_string(stills_++ % still_files) + ".jpg";
    replace(file, jpeg);
    ++number_;
    const std::string name = std::filesystem::path(file).filename();
    set_state(topic, R"("file":)" + text_of(Json(name)));
}

void MessageFile::write_when_due()
{
    if (now_ < due())
        return;
    if (now_ - whole_written_ >= whole_interval * pace_ && in_whole_ != number_)
        write_whole();
    else
        write_news();
}

Elapsed MessageFile::due() const
{
    const milliseconds pause = in_news_ == number_ ? longest_pause : shortest_pause;
    return news_written_ + std::chrono::duration_cast<Elapsed>(pause * pace_);
}

// In this order nobody finds a number in the news that the whole does not reach yet.
void MessageFile::write_whole()
{
    after_ = std::exchange(in_whole_, number_);
    whole_written_ = now_;
    drop_old_frames();
    write(".js", 0);
    write_news();
}

void MessageFile::write_news()
{
    if (now_ - whole_written_ >= whole_interval * pace_)
        after_ = in_whole_;
    in_news_ = number_;
    news_written_ = now_;
    write(".new.js", after_);
}

MessageFile::Message MessageFile::message(const std::string &topic, bool retained,
                                          const std::string &content) const
{
    return {number_, R"({"n":)" + std::to_string(number_) + R"(,"at":)" +
                         std::to_string(milliseconds_now()) + R"(,"topic":)" +
                         text_of(Json(topic)) + R"(,"retained":)" + (retained ? "true" : "false") +
                         ',' + content + '}'};
}

void MessageFile::set_state(const std::string &topic, const std::string &content)
{
    states_.insert_or_assign(topic, State{content, message(topic, true, content)});
}

void MessageFile::drop_old_frames()
{
    while (!frames_.empty() && (now_ - frames_.front().at > frames_kept ||
                                (frames_.size() > 1 && frame_bytes_ > max_frame_bytes))) {
        frame_bytes_ -= frames_.front().message.text.size();
        frames_.pop_front();
    }
}

void MessageFile::write(const char *ending, std::uint64_t after) const
{
    std::vector<const Message *> messages;
    const auto add = [&](const Message &message) {
        if (message.number > after)
            messages.push_back(&message);
    };
    std::ranges::for_each(events_, add);
    std::ranges::for_each(frames_, add, &Frame::message);
    for (const auto &[topic, state] : states_)
        add(state.message);
    std::ranges::stable_sort(messages, {}, [](const Message *message) { return message->number; });
    std::string text = R"(takeMessages({"run":)" + std::to_string(run_) + R"(,"written":)" +
                       std::to_string(milliseconds_now()) + R"(,"after":)" + std::to_string(after) +
                       R"(,"messages":[)";
    const char *separator = "\n";
    for (const Message *const message : messages)
        text += std::exchange(separator, ",\n") + message->text;
    replace(base_ + ending, text + "]});\n");
}

} // namespace va::picture
