#include "platform/nvram.h"
#include "tests/support/store_file.h"

#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{

using namespace std::string_literals;

std::string get(const char *key)
{
    char buffer[64] = "untouched";
    nvram_get_with_buffer(buffer, sizeof buffer, "default", key, 0);
    return buffer;
}

TEST(Store, ReadsLinesOfKeyAndValue)
{
    const std::pair<std::string, const char *> cases[] = {
        // content, value of key "a"
        {"", "default"},
        {"a\n a=1\n#a=1\nab=1\n=2\n", "default"},
        {"a=\n", ""},
        {"a= x = y # z \n", " x = y # z "},
        {"a=1\nb=2\na=3\n#a=4\na\n", "3"},
        {"\x7f=\0\xff\n\0a=9\na=1\0b\n="s, "1"},
        {std::string(3000, 'x') + "\na=1\n" + std::string(3000, '='), "1"}};
    StoreFile store;
    for (const auto &[content, value] : cases) {
        store.write(content);
        EXPECT_EQ(get("a"), value) << content;
    }
}

TEST(Store, TellsAMissingKeyOnlyWithoutADefault)
{
    const StoreFile store("empty=\nn.M7.x=seven\n");
    char buffer[] = "untouched";
    EXPECT_EQ(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "missing"), 0);
    EXPECT_EQ(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "%0999d", 1), 0);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_NE(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "empty"), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_NE(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "n.M%d.%s", 7, "x"), 0);
    EXPECT_STREQ(buffer, "seven");
}

TEST(Store, CutsAndTerminatesWhatDoesNotFit)
{
    const StoreFile store("a=012\n");
    const std::string expected[] = {"?????", "\0????"s, "0\0???"s, "01\0??"s, "012\0?"s};
    for (std::size_t size = 0; size < std::size(expected); ++size) {
        for (const char *key : {"a", "missing"}) {
            std::string buffer(5, '?');
            nvram_get_with_buffer(buffer.data(), size, "012", key, 0);
            EXPECT_EQ(buffer, expected[size]) << key;
        }
    }
}

TEST(Store, SurvivesWhateverStandsAtItsPath)
{
    const StoreFile store("a=1\n");
    std::filesystem::resize_file(store.path(), std::uintmax_t{1} << 40);
    EXPECT_EQ(get("a"), "1");
    std::filesystem::remove(store.path());
    EXPECT_EQ(get("a"), "default");
    ASSERT_EQ(mkfifo(store.path().c_str(), 0600), 0);
    EXPECT_EQ(get("a"), "default");
}

TEST(Store, ServesTwoThreadsWhileItIsRewritten)
{
    const std::string values[] = {std::string(50, 'x'), std::string(50, 'y')};
    StoreFile store;
    for (const bool in_place : {false, true}) {
        store.replace("a=" + values[1]);
        std::atomic<bool> stop{false};
        const auto read = [&] {
            while (!stop) {
                const std::string value = get("a");
                const bool whole = value == values[0] || value == values[1];
                const bool part = values[0].starts_with(value) || values[1].starts_with(value);
                EXPECT_TRUE(whole || (in_place && (part || value == "default"))) << value;
            }
        };
        std::thread readers[] = {std::thread(read), std::thread(read)};
        for (int i = 0; i < 300; ++i) {
            const std::string &value = values[i % 2]; // same size, and noticed at once
            in_place ? store.write("a=" + value) : store.replace("a=" + value);
            EXPECT_EQ(get("a"), value);
        }
        stop = true;
        for (std::thread &reader : readers)
            reader.join();
    }
}

} // namespace
