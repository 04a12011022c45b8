#include "platform/nvram.h"
#include "tests/support/capture.h"
#include "tests/support/store_file.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;

std::string get(const char *key, std::size_t size = 64)
{
    char buffer[64] = "untouched";
    nvram_get_with_buffer(buffer, size, "default", "%s", key);
    return buffer;
}

TEST(Store, ReadsLinesOfKeyAndValue)
{
    const std::pair<std::string, const char *> cases[] = {// content, value of key "a"
                                                          {"a\n a=1\n#a=1\nab=1\n=2\n", "default"},
                                                          {"a=\n", ""},
                                                          {"a= x = y # z \n", " x = y # z "},
                                                          {"a=1\nb=2\na=3\n#a=4\na\n", "3"},
                                                          {"a=yes\r\nb=\r\n", "yes"},
                                                          {"\x7f=\0\xff\n\0a=9\na=1\0b\n="s, "1"}};
    StoreFile store;
    for (const auto &[content, value] : cases) {
        store.write(content);
        EXPECT_EQ(get("a"), value) << content;
    }
    std::filesystem::resize_file(store.path(), std::uintmax_t{1} << 40);
    EXPECT_EQ(get("a"), "1");
    EXPECT_EQ(get("a", 0), "untouched");
    char buffer[4] = "old";
    store.write("n.M7.x=seven\n");
    EXPECT_EQ(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "%0999d", 1), 0);
    EXPECT_STREQ(buffer, "old");
    EXPECT_NE(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "n.M%d.%s", 7, "x"), 0);
    EXPECT_STREQ(buffer, "sev");
}

TEST(Store, TellsOnceWhatIsWrongWithIt)
{
    const char *sensor = "Properties.ImageSource.Sensor";
    StoreFile store;
    const std::string path = "sim: " + store.path() + ": ";
    for (int round = 0; round < 2; ++round) {
        store.write(sensor + "=imx122\n"s);
        EXPECT_EQ(stderr_of([&] { EXPECT_EQ(get(sensor), "imx122"); }), "");
        std::filesystem::remove(store.path());
        std::filesystem::create_directory(store.path());
        const auto ask = [&] {
            EXPECT_EQ(get("a") + get(sensor) + get(sensor), "defaultdefaultdefault");
        };
        EXPECT_EQ(stderr_of(ask),
                  path + "cannot be read: Is a directory\n" + path + "no " + sensor + "\n");
        std::filesystem::remove(store.path());
    }
}

} // namespace
