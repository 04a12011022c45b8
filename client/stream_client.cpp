#include "client/stream_client.h"

#include "client/frame_reader.h"
#include "util/fd.h"
#include "util/text.h"
#include "util/unix_address.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace va
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::size_t read_size = std::size_t{64} * 1024;

// Why there is no connection, in words of this system where the system's own would puzzle.
std::string refusal(int error, const std::string &path)
{
    const auto directory = std::filesystem::path(path).parent_path();
    std::error_code ignored;
    switch (error) {
    case ENOENT:
        if (!directory.empty() && !std::filesystem::exists(directory, ignored))
            return "no such directory";
        return "nobody listens";
    case ECONNREFUSED:
        return "nobody listens";
    case EAGAIN:
        return "the daemon accepts no more clients";
    default:
        return error_text(error);
    }
}

} // namespace

struct StreamClient::Connection {
    bool is_trusted() const { return useful || Clock::now() - since >= std::chrono::seconds(1); }

    Fd fd;
    Clock::time_point since;
    bool useful = false; // has brought a whole frame
    FrameReader reader = {};
    std::optional<Outcome> end = {}; // once nothing more can be read
};

StreamClient::StreamClient(std::string path) : path_(std::move(path)) {}
StreamClient::StreamClient(StreamClient &&) noexcept = default;
StreamClient &StreamClient::operator=(StreamClient &&) noexcept = default;
StreamClient::~StreamClient() = default;

int StreamClient::fd() const
{
    return connection_ ? connection_->fd.get() : -1;
}

void StreamClient::connect()
{
    if (connection_) {
        if (connection_->is_trusted())
            say_connected();
        return;
    }
    Fd fd = connect_unix(path_);
    if (fd) {
        connection_.reset(new Connection{std::move(fd), Clock::now()});
        if (!turned_away_)
            say_connected();
    } else {
        turned_away_ = false;
        outcome_ = {State::Waiting, "waiting for " + path_ + ": " + refusal(errno, path_)};
    }
}

void StreamClient::receive(const Sink &sink)
{
    if (!connection_)
        return;
    if (!connection_->end)
        read_once();
    if (take_frames(sink) && connection_->end)
        disconnect();
}

void StreamClient::read_once()
{
    std::array<std::uint8_t, read_size> bytes;
    const ssize_t got = read(fd(), bytes.data(), bytes.size());
    if (got > 0)
        connection_->reader.append(std::span(bytes).first(static_cast<std::size_t>(got)));
    else if (got == 0)
        connection_->end = {State::Closed, "closed by the daemon"};
    else if (errno != EINTR && errno != EAGAIN)
        connection_->end = {State::Broken, error_text(errno)};
}

bool StreamClient::take_frames(const Sink &sink)
{
    FrameReader &reader = connection_->reader;
    std::span<const std::uint8_t> payload;
    FrameReader::Result result;
    while ((result = reader.next(payload)) == FrameReader::Result::Frame) {
        connection_->useful = true;
        say_connected();
        if (!sink(payload))
            return false;
    }
    if (result == FrameReader::Result::BadLength)
        connection_->end = {State::Broken,
                            "absurd record length " + std::to_string(reader.announced())};
    else if (connection_->end && !reader.at_boundary())
        connection_->end = {State::Broken, "closed within a record"};
    return true;
}

void StreamClient::say_connected()
{
    outcome_ = {State::Connected, "connected"};
}

void StreamClient::disconnect()
{
    turned_away_ = !connection_->is_trusted();
    outcome_ = std::move(*connection_->end);
    connection_.reset();
}

} // namespace va
