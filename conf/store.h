#pragma once

#include "conf/conf.h"
#include "conf/findings.h"
#include "platform/nvram.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// What the readers share: typed access to the store and the byte-wise comparison. Private to conf/.

// The decimal number at the start of `text`, or 0; see conf.h.
std::int32_t parse_number(const char *text);

// Up to two decimal numbers joined by "x"; returns how many were found. Only those are stored.
int parse_pair(const char *text, std::int32_t &first, std::int32_t &second);

// A key of the store: a format that holds one "%d" at most. Another does not compile.
class Key
{
public:
    consteval Key(const char *text) : text_(text)
    {
        int conversions = 0;
        for (; *text; ++text) {
            if (*text == '%' && (*++text != 'd' || ++conversions > 1))
                throw "not a key";
        }
    }
    const char *text() const { return text_; }

private:
    const char *text_;
};

// For the findings: what was read, and of a number whether it is one; and that it does not count,
// neither under this key nor under any that differs from it behind the last dot alone.
void note(Key key, int index, const char *value, const char *default_text);
void note_number(Key key, int index, const char *value, const char *default_text);
void leave_out_with(Key key, int index, const char *why);

// The line or area that the key is of became a filter.
void note_filter(int number, Key key, int index, std::int32_t event, int bit);

// Whether the findings are told what is read.
enum class Tells { No, Yes };

// Reads keys one after another into one buffer. `index` fills the "%d" of a key that has one.
template <std::size_t Size, Tells tells>
class StoreReader
{
public:
    const char *text(const char *default_text, Key key, int index = 0)
    {
        read(default_text, key, index);
        if (tells == Tells::Yes)
            note(key, index, buffer_, default_text);
        return buffer_;
    }

    std::int32_t number(const char *default_text, Key key, int index = 0)
    {
        read(default_text, key, index);
        if (tells == Tells::Yes)
            note_number(key, index, buffer_, default_text);
        return parse_number(buffer_);
    }

    std::int32_t flag(const char *default_text, Key key, int index = 0)
    {
        return isEnabled(text(default_text, key, index));
    }

private:
    void read(const char *default_text, Key key, int index)
    {
        buffer_[0] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        nvram_get_with_buffer(buffer_, Size, default_text, key.text(), index);
#pragma GCC diagnostic pop
    }

    char buffer_[Size];
};

using RecordReader = StoreReader<1024, Tells::Yes>;
using KeyReader = StoreReader<128, Tells::No>;

template <class Record>
int compare_records(const Record *a, const Record *b)
{
    static_assert(std::has_unique_object_representations_v<Record>, "padding would be compared");
    return std::memcmp(a, b, sizeof(Record));
}
