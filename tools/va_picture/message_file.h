#pragma once

#include "tools/common/message_maker.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>

namespace va::picture
{

// A camera's messages as files beside PAGE.html, which shows them without a server: a browser lets
// a page that was opened from a file load nothing but scripts and pictures. So each of them is a
// call of takeMessages(), in the place of the last one:
//
// PAGE.js      {run, written, after: 0, messages}: all states, the last hundred events, the frames
//              of the last two seconds.
// PAGE.new.js  {run, written, after, messages}: all from the number behind `after` on. Whoever
// knows
//              the messages up to there need not load PAGE.js, which has them.
//
// run is when the program was started, written when the file was, in milliseconds since 1970. A
// message is {n, at, topic, retained, payload}; n counts them. An event that changes a state stands
// there twice with one n: not retained, as the event, and retained, as the state. A still has the
// name of its picture beside the page as `file` in the place of the payload. A payload of null
// takes a state away.
//
// All throw std::system_error.
class MessageFile : public MessageTarget
{
public:
    // Writes the page. `pace` is how fast the records' time passes, relative to the clock.
    MessageFile(const std::string &page, double pace);

    void event(const std::string &topic, const std::string &payload, bool retained) override;
    void state(const std::string &topic, const std::string &payload) override;
    bool frame(const std::string &topic, const std::string &payload,
               std::optional<std::uint32_t> picture) override;
    void still(const std::string &topic, const std::string &jpeg); // empty: none any more

    // The records' time, before what is of that time.
    void set_time(Elapsed now) { now_ = now; }

    // Writes what is new, at most twenty times a second, and at least about once a second.
    void write_when_due();
    Elapsed due() const;
    void write_whole();

private:
    struct Message {
        std::uint64_t number;
        std::string text;
    };
    struct State {
        std::string content;
        Message message;
    };
    struct Frame {
        Message message;
        Elapsed at;
    };

    Message message(const std::string &topic, bool retained, const std::string &content) const;
    void set_state(const std::string &topic, const std::string &content);
    void drop_old_frames();
    void write(const char *ending, std::uint64_t after) const;
    void write_news();

    std::string base_; // path of the page without its ending
    double pace_;
    std::int64_t run_;
    Elapsed now_{};
    std::uint64_t number_ = 0; // of the last message
    std::deque<Message> events_;
    std::deque<Frame> frames_;
    std::size_t frame_bytes_ = 0;
    std::map<std::string, State> states_;
    int stills_ = 0;

    std::uint64_t after_ = 0;    // the last one that is not among the news
    std::uint64_t in_whole_ = 0; // the last one there
    std::uint64_t in_news_ = 0;
    Elapsed whole_written_{};
    Elapsed news_written_{};
};

} // namespace va::picture
