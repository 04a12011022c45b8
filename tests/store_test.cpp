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

std::string get(const char *key, std::size_t size = 64)
{
    char buffer[64] = "untouched";
    nvram_get_with_buffer(buffer, size, "default", key, 0);
    return buffer;
}

TEST(Store, ReadsLinesOfKeyAndValue)
{
    const std::pair<std::string, const char *> cases[] = {// content, value of key "a"
                                                          {"", "default"},
                                                          {"a\n a=1\n#a=1\nab=1\n=2\n", "default"},
                                                          {"a=\n", ""},
                                                          {"a= x = y # z \n", " x = y # z "},
                                                          {"a=yes\r\nb=\r\n", "yes"},
                                                          {"a=1\nb=2\na=3\n#a=4\na\n", "3"},
                                                          {"\x7f=\0\xff\n\0a=9\na=1\0b\n="s, "1"}};
    StoreFile store;
    for (const auto &[content, value] : cases) {
        store.write(content);
        EXPECT_EQ(get("a"), value) << content;
    }
    std::filesystem::resize_file(store.path(), std::uintmax_t{1} << 40);
    EXPECT_EQ(get("a"), "1");
    std::filesystem::remove(store.path());
    EXPECT_EQ(get("a"), "default");
    mkfifo(store.path().c_str(), 0600);
    EXPECT_EQ(get("a"), "default");
}

TEST(Store, CutsWhatDoesNotFitAndTellsWhatIsMissing)
{
    const StoreFile store("n.M7.x=seven\n");
    for (const std::size_t size : {1u, 2u, 5u, 6u})
        EXPECT_EQ(get("n.M7.x", size), "seven"s.substr(0, size - 1));
    EXPECT_EQ(get("n.M7.x", 0), "untouched");
    char buffer[6] = "kept";
    EXPECT_EQ(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "%0999d", 1), 0);
    EXPECT_STREQ(buffer, "kept");
    EXPECT_NE(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "n.M%d.%s", 7, "x"), 0);
    EXPECT_STREQ(buffer, "seven");
}

TEST(Store, ServesThreadsWhileItIsRewritten)
{
    const std::string values[] = {std::string(50, 'x'), std::string(50, 'y')};
    StoreFile store;
    std::atomic<bool> stop{false};
    const auto read = [&] {
        for (std::string value; !stop; value = get("a"))
            EXPECT_TRUE(value == "default" || values[value[0] == 'y'].starts_with(value)) << value;
    };
    const std::jthread readers[] = {std::jthread(read), std::jthread(read)};
    for (int i = 0; i < 300; ++i) {
        store.write("a=" + values[i % 2]); // same size, and noticed at once
        EXPECT_EQ(get("a"), values[i % 2]);
    }
    stop = true;
}

} // namespace
