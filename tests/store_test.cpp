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
        {"a", "default"},
        {"#a=1\n", "default"},
        {" a=1\n", "default"},
        {"ab=1\n=2\n", "default"},
        {"a=\n", ""},
        {"a= x = y # z \n", " x = y # z "},
        {"a=1\nb=2\na=3\n", "3"},
        {"a=1\n#a=2\na\n", "1"},
        {std::string("\x7f=\0\xff\n\0a=9\na=1\0b\n=", 17), "1"},
        {std::string(3000, 'x') + "\na=1\n" + std::string(3000, '='), "1"}};
    StoreFile store;
    for (const auto &[content, value] : cases) {
        store.write(content);
        EXPECT_EQ(get("a"), value) << content;
    }
    store.write("#a=1\nn.M7.x=seven\n");
    EXPECT_EQ(get("#a"), "default");
    char buffer[64];
    EXPECT_NE(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "n.M%d.%s", 7, "x"), 0);
    EXPECT_STREQ(buffer, "seven");
}

TEST(Store, TellsAMissingKeyOnlyWithoutADefault)
{
    const StoreFile store("empty=\n");
    char buffer[] = "untouched";
    EXPECT_EQ(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "missing"), 0);
    EXPECT_EQ(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "%0999d", 1), 0);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_NE(nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "empty"), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(Store, CutsAndTerminatesWhatDoesNotFit)
{
    const StoreFile store("a=0123456789\n");
    for (std::size_t size = 0; size <= 12; ++size) {
        std::string expected(16, '?');
        if (size)
            expected.replace(0, std::min<std::size_t>(size, 11),
                             std::string("0123456789").substr(0, size - 1) + '\0');
        for (const char *key : {"a", "missing"}) {
            std::string buffer(16, '?');
            nvram_get_with_buffer(buffer.data(), size, "0123456789", key, 0);
            EXPECT_EQ(buffer, expected) << key;
        }
    }
}

TEST(Store, SurvivesWhateverStandsAtItsPath)
{
    const StoreFile store("a=1\n");
    std::filesystem::resize_file(store.path(), std::uintmax_t{1} << 40);
    EXPECT_EQ(get("a"), "1");

    const TempDir directory;
    ASSERT_EQ(mkfifo(directory.file("fifo").c_str(), 0600), 0);
    for (const std::string &path : {directory.file("missing"), directory.path(),
                                    directory.file("fifo"), std::string("/dev/zero")}) {
        StoreFile::serve(path);
        EXPECT_EQ(get("a"), "default") << path;
    }
}

TEST(Store, NoticesEveryChangeAtOnce)
{
    StoreFile store;
    for (int i = 0; i < 300; ++i) {
        const std::string value = std::to_string(i % 10);
        i % 3 ? store.write("a=" + value) : store.replace("a=" + value);
        ASSERT_EQ(get("a"), value);
    }
    std::filesystem::remove(store.path());
    EXPECT_EQ(get("a"), "default");
}

// Two threads read while `rewrite` changes between two values; `good` judges what they see.
template <class Rewrite, class Good>
void read_while(Rewrite rewrite, Good good)
{
    rewrite("a=x");
    std::atomic<bool> stop{false};
    std::atomic<int> bad{0};
    const auto read = [&] {
        do
            bad += !good(get("a"));
        while (!stop);
    };
    std::thread readers[] = {std::thread(read), std::thread(read)};
    for (int i = 0; i < 300; ++i)
        rewrite("a=" + std::string(50, "xy"[i % 2]));
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(bad, 0);
}

TEST(Store, ServesTwoThreadsWhileItIsRewritten)
{
    StoreFile store;
    const std::string x(50, 'x');
    const std::string y(50, 'y');
    read_while([&](const std::string &content) { store.replace(content); },
               [&](const std::string &value) { return value == "x" || value == x || value == y; });
    // In place, a value may be seen cut or missing, but never mixed up.
    read_while([&](const std::string &content) { store.write(content); },
               [&](const std::string &value) {
                   return x.starts_with(value) || y.starts_with(value) || value == "default";
               });
}

} // namespace
