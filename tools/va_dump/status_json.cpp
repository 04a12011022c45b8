#include "tools/va_dump/status_json.h"

#include "tools/common/json.h"
#include "tools/va_dump/status_lines.h"

#include <algorithm>
#include <vector>

namespace
{

using Path = std::vector<std::string>;

Path path_of(std::string key)
{
    Path path;
    for (std::size_t dot; (dot = key.find('.')) != key.npos; key.erase(0, dot + 1)) {
        path.push_back(key.substr(0, dot));
        if (path.front() == "setting" || path.front() == "left_out") {
            key.erase(0, dot + 1);
            break;
        }
    }
    path.push_back(key);
    return path;
}

// An object that members are put into in the order of their paths.
class Object
{
public:
    void add(const Path &path, const std::string &value)
    {
        const auto parents = static_cast<std::ptrdiff_t>(path.size()) - 1;
        const auto [mine, its] =
            std::mismatch(open_.begin(), open_.end(), path.begin(), path.begin() + parents);
        close(open_.end() - mine);
        for (auto name = its; name != path.begin() + parents; ++name) {
            begin_member();
            text_ += quoted(*name) + ":{";
            open_.push_back(*name);
            first_ = true;
        }
        begin_member();
        text_ += member(path.back(), value);
    }

    std::string finish()
    {
        close(static_cast<std::ptrdiff_t>(open_.size()));
        return text_ + '}';
    }

private:
    void begin_member()
    {
        text_ += first_ ? "" : ",";
        first_ = false;
    }

    void close(std::ptrdiff_t count)
    {
        open_.resize(open_.size() - static_cast<std::size_t>(count));
        text_.append(static_cast<std::size_t>(count), '}');
        first_ = first_ && count == 0;
    }

    std::string text_ = "{";
    Path open_;
    bool first_ = true;
};

} // namespace

std::string status_json(const DaemonStatus &status, const Verdict &verdict)
{
    std::vector<std::pair<Path, std::string>> members;
    for (const auto &[key, value] : status.lines)
        members.emplace_back(path_of(key), is_number(value) ? value : quoted(value));
    std::ranges::stable_sort(members, {}, [](const auto &item) { return item.first; });
    Object object;
    object.add({"verdict"}, quoted(verdict.text));
    object.add({"exit_status"}, std::to_string(verdict.status));
    for (const auto &[path, value] : members)
        object.add(path, value);
    return object.finish();
}
