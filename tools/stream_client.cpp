#include "tools/stream_client.h"

#include "ipc/network/socket.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace
{

constexpr std::size_t read_size = std::size_t{64} * 1024;

} // namespace

StreamClient::StreamClient(const StreamKind &kind, const std::string &directory)
    : kind_(&kind), path_(directory + "/" + std::string(kind.name))
{
}

void StreamClient::connect()
{
    if (fd_)
        return;
    int fd = -1;
    if (unix_domain_socket_connect(&fd, path_.c_str()) == 0) {
        fd_.reset(fd);
        reader_ = FrameReader();
        waiting_ = false;
        note("connected");
    } else if (!std::exchange(waiting_, true)) {
        note("waiting for " + path_);
    }
}

void StreamClient::receive(const Sink &sink)
{
    std::array<std::uint8_t, read_size> bytes;
    const ssize_t got = read(fd_.get(), bytes.data(), bytes.size());
    if (got > 0) {
        reader_.append(std::span(bytes).first(static_cast<std::size_t>(got)));
        take_frames(sink);
    } else if (got == 0) {
        disconnect(reader_.at_boundary() ? "closed by the daemon" : "closed within a record");
    } else if (errno != EINTR && errno != EAGAIN) {
        disconnect(std::generic_category().message(errno));
    }
}

void StreamClient::take_frames(const Sink &sink)
{
    std::span<const std::uint8_t> payload;
    FrameReader::Result result;
    while ((result = reader_.next(payload)) == FrameReader::Result::Frame) {
        if (!sink(payload))
            return;
    }
    if (result == FrameReader::Result::BadLength)
        disconnect("absurd record length " + std::to_string(reader_.announced()));
}

void StreamClient::disconnect(const std::string &reason)
{
    note(reason);
    fd_.reset();
}

void StreamClient::note(const std::string &text) const
{
    std::fprintf(stderr, "va_dump: %s: %s\n", kind_->name.data(), text.c_str());
}
