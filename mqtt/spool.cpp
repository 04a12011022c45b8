#include "mqtt/spool.h"

#include "tools/common/messages.h"
#include "tools/common/printing.h"
#include "util/file.h"
#include "util/text.h"

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace va::mqtt
{

namespace
{

// Nobody else reads what was seen.
Fd open_locked(const std::string &path, int flags)
{
    constexpr mode_t owner = S_IRUSR | S_IWUSR;
    Fd file(
        open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | flags, owner));
    struct stat status;
    if (!file || fstat(file.get(), &status) == -1)
        throw_file_error(path);
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error(path + " is no file");
    if (flock(file.get(), LOCK_EX | LOCK_NB) == -1)
        throw std::runtime_error(path + " is in use");
    return file;
}

std::string read_all(const Fd &file, const std::string &path)
{
    std::string text;
    char part[1 << 16];
    ssize_t size;
    while ((size = read(file.get(), part, sizeof part)) > 0 && text.size() <= Spool::MAX_BYTES)
        text.append(part, static_cast<std::size_t>(size));
    if (size == -1)
        throw_file_error(path);
    if (text.size() > Spool::MAX_BYTES)
        throw std::runtime_error(path + " is larger than a spool file");
    return text;
}

// Payloads are JSON on one line, and topics hold no control characters: so does the line.
std::string text_of(std::span<const Message> events)
{
    std::string text;
    for (const Message &event : events)
        text += va::text_of({{"topic", event.topic},
                             {"payload", event.payload},
                             {"retained", event.retained}}) +
                '\n';
    return text;
}

std::optional<Message> event_in(std::string_view line)
{
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object())
        return std::nullopt;
    try {
        Message event{json.at("topic"), json.at("payload"), json.at("retained")};
        return event.topic.empty() ? std::nullopt : std::optional(std::move(event));
    } catch (const Json::exception &) {
        return std::nullopt;
    }
}

bool write_through(const Fd &file, const std::string &text)
{
    return write_whole(file.get(), text) == 0 && fdatasync(file.get()) == 0;
}

void sync_folder_of(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == path.npos ? "." : path.substr(0, slash + 1);
    const Fd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || fsync(fd.get()) == -1)
        throw_file_error(folder);
}

} // namespace

Spool::Spool(std::string path) : path_(std::move(path)), file_(open_locked(path_, O_APPEND))
{
    sync_folder_of(path_);
}

std::vector<Message> Spool::load()
{
    const std::string text = read_all(file_, path_);
    std::vector<Message> events;
    int unreadable = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (auto event = event_in(line))
            events.push_back(std::move(*event));
        else
            ++unreadable;
    }
    size_ = text.size();
    if (unreadable > 0 || (!text.empty() && !text.ends_with('\n'))) {
        say(path_ + ": lines that cannot be read: " + std::to_string(unreadable));
        replace(events);
    }
    return events;
}

bool Spool::append(std::span<const Message> events)
{
    const std::string text = text_of(events);
    if (!write_through(file_, text)) {
        const bool failure = failed(error_text(errno));
        if (ftruncate(file_.get(), static_cast<off_t>(size_)) == -1) // else half a line stays
            size_ += text.size();
        return failure;
    }
    size_ += text.size();
    has_failed_ = false;
    return true;
}

// What was written before is there until all of the new is.
bool Spool::replace(std::span<const Message> events)
{
    const std::string text = text_of(events);
    const std::string path = path_ + ".new";
    try {
        Fd file = open_locked(path, O_APPEND | O_TRUNC);
        if (!write_through(file, text) || rename(path.c_str(), path_.c_str()) == -1) {
            const bool failure = failed(error_text(errno));
            unlink(path.c_str());
            return failure;
        }
        file_ = std::move(file);
        size_ = text.size();
        sync_folder_of(path_);
    } catch (const std::runtime_error &error) {
        return failed(error.what());
    }
    has_failed_ = false;
    return true;
}

bool Spool::clear()
{
    if (size_ > 0 && ftruncate(file_.get(), 0) == -1)
        return failed(error_text(errno));
    size_ = 0;
    return true;
}

bool Spool::failed(const std::string &reason)
{
    if (!std::exchange(has_failed_, true))
        say(path_ + " cannot be written: " + reason + "; events wait in memory alone");
    return false;
}

} // namespace va::mqtt
