#pragma once

#include "ipc/network/fd.h"
#include "tools/frame_reader.h"
#include "tools/record_text.h"

#include <functional>
#include <string>

// One result stream as a client sees it: connects to the stream's socket, hands on the payload of
// every frame, and is ready to connect again after the daemon went. What was sent while it was not
// connected is lost; the first frame after a connect is a whole one.
//
// Used by one thread. Says on standard error when it waits, has connected or was cut off.
class StreamClient
{
public:
    // `kind` must outlive the client. Throws std::bad_alloc.
    StreamClient(const StreamKind &kind, const std::string &directory);

    // Tries to connect unless connected. Nobody listening yet, or no socket at all, is no error:
    // call it again later.
    void connect();

    // The descriptor to poll for readability; -1 while not connected.
    int fd() const { return fd_.get(); }
    const StreamKind &kind() const { return *kind_; }

    // Called once for each payload, which is valid during the call; false ends the receiving.
    using Sink = std::function<bool(std::span<const std::uint8_t> payload)>;

    // One read of what the socket holds; call it when the descriptor is readable. Closes the
    // connection at end of file, on an error and when a length is absurd.
    void receive(const Sink &sink);

private:
    void disconnect(const std::string &reason);
    void take_frames(const Sink &sink);
    void note(const std::string &text) const;

    const StreamKind *kind_;
    std::string path_;
    Fd fd_;
    bool waiting_ = false; // said so already
    FrameReader reader_;
};
