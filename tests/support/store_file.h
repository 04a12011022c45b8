#pragma once

#include "tests/support/temp_dir.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

// A settings file of its own, which the store serves while the object lives. Make it before threads
// start.
class StoreFile
{
public:
    explicit StoreFile(const std::string &content = "")
    {
        write(content);
        setenv("NVRAM_FILE", path().c_str(), 1);
    }
    ~StoreFile() { unsetenv("NVRAM_FILE"); }

    std::string path() const { return directory_.file("nvram.conf"); }
    void write(const std::string &content) { std::ofstream(path(), std::ios::binary) << content; }

private:
    TempDir directory_;
};

// Settings whose keys have the beginning in common.
inline std::string lines(const std::string &prefix, std::initializer_list<std::string> settings)
{
    std::string text;
    for (const std::string &setting : settings)
        text += prefix + setting + "\n";
    return text;
}

// A window's four settings.
inline std::string window(const std::string &key, int left, int right, int top, int bottom)
{
    return lines(key, {"Left=" + std::to_string(left), "Right=" + std::to_string(right),
                       "Top=" + std::to_string(top), "Bottom=" + std::to_string(bottom)});
}

template <class Record>
bool same_bytes(const Record &a, const Record &b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

// What `reader` makes of the settings; it must succeed and write every byte of the record.
template <class Record, class... Index>
Record read_record(int (*reader)(Record *, Index...), Index... index)
{
    Record records[2];
    std::memset(&records[0], 0xa5, sizeof(Record));
    std::memset(&records[1], 0x5a, sizeof(Record));
    for (Record &record : records)
        EXPECT_EQ(reader(&record, index...), 0);
    EXPECT_TRUE(same_bytes(records[0], records[1])) << "a byte was not written";
    return records[0];
}
