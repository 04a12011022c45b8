#include "mqtt/backoff.h"
#include "mqtt/outbox.h"
#include "mqtt/spool.h"
#include "support/temp_dir.h"

#include <csignal>
#include <fstream>
#include <set>

#include <gtest/gtest.h>
#include <sys/resource.h>

using namespace va::mqtt;
using namespace std::chrono_literals;

namespace
{

// Sends all that waits, under rising numbers; returns it, "topic=payload", "!" for a retained one.
class Sender
{
public:
    explicit Sender(Outbox &outbox) : outbox_(outbox) {}

    std::string send(int most = 100)
    {
        std::string sent;
        for (; most > 0; --most) {
            const auto message = outbox_.next();
            if (!message)
                break;
            outbox_.sent(++number_);
            sent += message->topic + '=' + message->payload + (message->retained ? "! " : " ");
        }
        return sent;
    }

    int number() const { return number_; }

private:
    Outbox &outbox_;
    int number_ = 0;
};

TEST(Outbox, SendsStatesFirstAndEventsInTheirOrder)
{
    Outbox outbox(3);
    Sender sender(outbox);
    for (const char *text : {"1", "2", "3", "4"})
        outbox.add({"e", text});
    outbox.set_state("s", "old");
    outbox.set_state("s", "new");
    EXPECT_EQ(sender.send(), "s=new! e=2 e=3 e=4 ");
    EXPECT_EQ(outbox.dropped(), 1U);
    EXPECT_EQ(outbox.size(), 4U);
    outbox.set_state("s", "new"); // is known
    EXPECT_EQ(sender.send(), "");

    // What is not acknowledged is sent again, as are all states.
    EXPECT_EQ(outbox.acknowledge(1), "s");
    EXPECT_EQ(outbox.acknowledge(3), "e");
    EXPECT_EQ(outbox.acknowledge(3), std::nullopt);
    outbox.resend();
    EXPECT_EQ(outbox.acknowledge(2), std::nullopt);
    EXPECT_EQ(sender.send(), "s=new! e=2 e=4 ");
    for (int number = 5; number <= 7; ++number)
        EXPECT_NE(outbox.acknowledge(number), std::nullopt);
    EXPECT_EQ(outbox.size(), 0U);
    EXPECT_EQ(outbox.on_way(), 0U);

    outbox.add({"e", "impossible"});
    ASSERT_TRUE(outbox.next());
    outbox.discard();
    EXPECT_EQ(outbox.size(), 0U);
}

TEST(Outbox, LeavesTheNewestStateWithTheBroker)
{
    // An event that changes a state is not overtaken by the state, on its way or not, and is not
    // lost with it.
    for (const bool on_way : {false, true}) {
        Outbox outbox(2);
        Sender sender(outbox);
        outbox.add({"s", "began", true});
        EXPECT_EQ(sender.send(on_way ? 1 : 0), on_way ? "s=began! " : "");
        outbox.set_state("s", "");
        EXPECT_EQ(sender.send(), on_way ? "s=! " : "s=began! s=! ");
        outbox.resend();
        EXPECT_EQ(sender.send(), "s=! s=began! s=! ");
        for (int number = sender.number() - 2; number <= sender.number(); ++number)
            outbox.acknowledge(number);
        outbox.resend();
        EXPECT_EQ(sender.send(), ""); // it is known that there is no state
    }
    Outbox outbox(1);
    Sender sender(outbox);
    outbox.add({"s", "began", true});
    outbox.add({"e", "1"}); // for which the other one is dropped
    EXPECT_EQ(sender.send(), "s=began! e=1 ");

    // An empty state is not repeated once the broker has it; one of a new connection is.
    for (const int acknowledged : {1, 2})
        outbox.acknowledge(acknowledged);
    outbox.set_state("s", "");
    sender.send();
    outbox.resend();
    EXPECT_EQ(sender.send(), "s=! ");
    outbox.acknowledge(sender.number());
    outbox.resend();
    EXPECT_EQ(sender.send(), "");
}

TEST(Outbox, IsBounded)
{
    Outbox outbox(1000);
    Sender sender(outbox);
    const std::string large(Outbox::MAX_BYTES / 4, 'x');
    for (int number = 0; number < 9; ++number)
        outbox.add({"e", large});
    EXPECT_EQ(outbox.events(), 3U);
    EXPECT_EQ(outbox.dropped(), 6U);

    // What is on its way is not dropped, also when it has to be sent again.
    sender.send(2);
    for (int number = 0; number < 2; ++number)
        outbox.add({"e", large});
    EXPECT_EQ(outbox.events(), 3U);
    EXPECT_NE(outbox.acknowledge(1), std::nullopt);
    EXPECT_NE(outbox.acknowledge(2), std::nullopt);
    outbox.add({"e", large});
    EXPECT_EQ(outbox.events(), 2U);
    EXPECT_EQ(outbox.events_after(outbox.newest_event() - 1).size(), 1U);
    EXPECT_EQ(outbox.events_after(0).size(), 2U);
    EXPECT_EQ(outbox.oldest_event(), outbox.newest_event() - 1);
}

TEST(Backoff, GrowsUntilAConnectionHasLasted)
{
    using std::chrono::seconds;
    struct {
        Backoff::Time connected;
        int longest[2]; // seconds, without and with two quick ones
        bool is_flapping;
    } const steps[] = {
        {0ms, {1, 1}, false},  {0ms, {2, 1}, false}, {1ms, {4, 1}, false},  {59s, {8, 2}, false},
        {0ms, {16, 4}, false}, {1ms, {30, 8}, true}, {0ms, {30, 16}, true}, {60s, {1, 1}, false},
        {1s, {2, 1}, false},   {1s, {4, 1}, false},  {1s, {8, 2}, true},
    };
    for (const int quick : {0, 2}) {
        Backoff backoff(quick);
        for (const auto &step : steps) {
            const auto wait = backoff.after(step.connected);
            const seconds longest(step.longest[quick / 2]);
            SCOPED_TRACE(testing::Message() << quick << ", step " << &step - steps);
            EXPECT_GE(wait, longest / 2.0);
            EXPECT_LE(wait, longest);
            EXPECT_EQ(backoff.is_flapping(), step.is_flapping);
        }
    }
    std::set<Backoff::Time> waits; // of a fleet
    for (int camera = 0; camera < 20; ++camera)
        waits.insert(Backoff(0).after(0ms));
    EXPECT_GT(waits.size(), 1U);
    EXPECT_TRUE(Backoff(1).is_quick());
    EXPECT_FALSE(Backoff(0).is_quick());
}

class SpoolTest : public testing::Test
{
protected:
    std::string load()
    {
        Spool spool(path);
        std::string text;
        for (const Message &event : spool.load())
            text += event.topic + '=' + event.payload + (event.retained ? "! " : " ");
        return text;
    }

    const TempDir folder;
    const std::string path = folder.path() + "/spool";
};

TEST_F(SpoolTest, KeepsEventsInTheirOrder)
{
    const Message events[] = {{"a/b", R"({"x":"1\n\"2\""})", true}, {"b", "\xff"}, {"c", ""}};
    {
        Spool spool(path);
        EXPECT_TRUE(spool.load().empty());
        EXPECT_TRUE(spool.append(events));
        EXPECT_TRUE(spool.append({events, 1}));
        EXPECT_THROW(Spool{path}, std::runtime_error) << "used twice";
    }
    EXPECT_EQ(load(), R"(a/b={"x":"1\n\"2\""}! b=)"
                      "\xef\xbf\xbd"
                      R"( c= a/b={"x":"1\n\"2\""}! )");
    {
        Spool spool(path);
        spool.load();
        EXPECT_TRUE(spool.replace({events, 1}));
        EXPECT_THROW(Spool{path}, std::runtime_error) << "the new file is not locked";
        EXPECT_TRUE(spool.append({events + 2, 1}));
    }
    EXPECT_EQ(load(), R"(a/b={"x":"1\n\"2\""}! c= )");
    Spool spool(path);
    spool.load();
    EXPECT_TRUE(spool.clear());
    EXPECT_EQ(spool.size(), 0U);
    EXPECT_THROW(Spool("/dev/null"), std::runtime_error);
}

TEST_F(SpoolTest, ReadsWhatAPowerCutLeft)
{
    std::ofstream(path) << R"({"topic":"a","payload":"1","retained":false})"
                           "\n"
                        << std::string(5, '\0') << "\n[]\n{\"topic\":7}\n"
                        << R"({"topic":"b","payload":"2","retained":true})"
                           "\n"
                        << R"({"topic":"c","payload":"3","ret)";
    EXPECT_EQ(load(), "a=1 b=2! ");
    {
        Spool spool(path);
        EXPECT_EQ(spool.load().size(), 2U);
        const Message event{"d", "4"};
        EXPECT_TRUE(spool.append({&event, 1}));
    }
    EXPECT_EQ(load(), "a=1 b=2! d=4 ");
    std::ofstream(path) << std::string(Spool::MAX_BYTES + 1, '\n');
    EXPECT_THROW(load(), std::runtime_error);
}

TEST_F(SpoolTest, GoesOnWhenTheDeviceIsFull)
{
    const Message small{"a", "1"};
    const Message large{"b", std::string(4096, 'x')};
    signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    {
        Spool spool(path);
        EXPECT_TRUE(spool.append({&small, 1}));
        const rlimit limit{1024, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_FALSE(spool.append({&large, 1})); // a part of which is written
        EXPECT_FALSE(spool.replace({&large, 1}));
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_TRUE(spool.append({&small, 1}));
    }
    EXPECT_EQ(load(), "a=1 a=1 ");
}

} // namespace
