#pragma once

#include <cstdint>
#include <map>
#include <string>

// What the readers found in the store: the settings in use, and those that were rejected, with the
// reason. For a program that shows them; what takes effect is in the records.
struct ConfFindings {
    struct Setting {
        std::string value; // the store's, or the default
        bool is_default;
        std::string rejected; // why its reader rejected it; empty if it did not
        std::string unusable; // why the user of the record cannot use it; empty if it can

        bool in_use() const { return reason().empty(); }
        const std::string &reason() const { return rejected.empty() ? unusable : rejected; }
    };

    struct Filter {
        std::string name; // what the keys of its line or area begin with
        std::int32_t event;
        int bit; // of that event code's mask
    };

    // By key, as last read. A window, a line or an area that is not defined has none.
    std::map<std::string, Setting> settings;
    std::map<int, Filter> filters; // by number, as last read
    bool is_complete = true;       // memory was never short

    // As long as it lives, the readers that the calling thread calls report to `findings`. One at a
    // time on a thread; the caller keeps other threads away from the findings.
    class Collector
    {
    public:
        explicit Collector(ConfFindings &findings);
        ~Collector();
        Collector(const Collector &) = delete;
        Collector &operator=(const Collector &) = delete;
    };
};

// Where a reader reports: the findings that the calling thread collected when it was made. Without
// a collector it does nothing. Private to conf/.
class ConfReport
{
public:
    ConfReport();
    static ConfReport to_nobody() { return ConfReport(nullptr); }

    // This was read; `remark` is added to what is shown of the value.
    void read(const char *key, const char *value, const char *default_text, const char *remark);

    // What was read last under the keys that begin like this does not take effect; the first reason
    // counts. Of defaults among them nothing is kept, unless `beginning` is the whole key.
    void reject(const char *beginning, const char *why);

    // What is read under the key is usable (null), or is not, for this reason. It stays so, also
    // when the same is read again, until the next report.
    void use(const char *key, const char *why_not);

    // Filter `number` was made of the line or area of that name; there are `count` filters.
    void filter(int number, const char *name, std::int32_t event, int bit);
    void filter_count(int count);

private:
    explicit ConfReport(ConfFindings *findings) : findings_(findings) {}

    template <class Change>
    void change(Change change);

    ConfFindings *findings_;
};
