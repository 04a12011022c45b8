#pragma once

#include <cstdint>
#include <map>
#include <string>

// What the readers found in the store: the settings in use, and those that were left out, with why.
// For a program that wants to show them; what counts is in the records.
class ConfFindings
{
public:
    struct Setting {
        std::string value; // the store's, or the default
        bool is_default;
        std::string why_not; // it was read; empty: it counts
        std::string unfit;   // it was used; empty: it could be

        bool in_use() const { return why_not.empty() && unfit.empty(); }
    };

    struct Filter {
        std::string name; // what the keys of its line or area begin with
        std::int32_t event;
        int bit; // of that event code's mask
    };

    // By key, as last read. A window, a line or an area that is not defined has none.
    const std::map<std::string, Setting> &settings() const { return settings_; }
    // By number, as last read.
    const std::map<int, Filter> &filters() const { return filters_; }
    bool is_complete() const { return complete_; } // memory was never short

    // As long as it lives, the readers that the calling thread calls tell `findings`. One at a time
    // on a thread; the caller keeps other threads away from the findings.
    class Collector
    {
    public:
        explicit Collector(ConfFindings &findings);
        ~Collector();
        Collector(const Collector &) = delete;
        Collector &operator=(const Collector &) = delete;
    };

private:
    friend void conf_note(const char *key, const char *value, const char *default_text);
    friend void conf_leaveOut(const char *key, const char *why);
    friend void conf_use(const char *key, const char *why_not);
    friend void conf_leaveOutGroup(const char *beginning, const char *why);
    friend void conf_noteFilter(int number, const char *name, std::int32_t event, int bit);
    friend void conf_noteFilterNum(int count);

    template <class What>
    static void tell(What what);
    void note(const char *key, const char *value, const char *default_text);
    void leave_out(const char *key, const char *why);
    void leave_out_group(const char *beginning, const char *why);

    std::map<std::string, Setting> settings_;
    std::map<int, Filter> filters_;
    bool complete_ = true;
};

// Without a collector these do nothing.

// A reader has read this.
void conf_note(const char *key, const char *value, const char *default_text);

// What was read last under the key, or, but for defaults, under all keys that begin like this, does
// not count; `why` is for people.
void conf_leaveOut(const char *key, const char *why);
void conf_leaveOutGroup(const char *beginning, const char *why);

// What was read under the key is used (null), or is not, for this reason. It stays so, also when
// the same is read again, until told otherwise.
void conf_use(const char *key, const char *why_not);

// Filter `number` was made of the line or area that is called so; there are `count` filters.
void conf_noteFilter(int number, const char *name, std::int32_t event, int bit);
void conf_noteFilterNum(int count);
