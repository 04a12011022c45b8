#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace va
{

// One result stream as a client sees it: connects to the stream's socket, passes on the payload of
// every frame, and can connect again after the daemon has ended. What was sent while it was not
// connected is lost; the first frame after a connect is a whole one.
//
// Used by one thread. Never waits, prints nothing. Throws std::bad_alloc and what a sink throws.
//
//     StreamClient client(VAIPC_RUN_DIR "/od");
//     for (;;) {
//         client.connect();
//         pollfd polled{client.fd(), POLLIN, 0}; // poll() passes over the descriptor -1
//         if (poll(&polled, 1, 200) > 0)
//             client.receive(sink);
//     }
class StreamClient
{
public:
    explicit StreamClient(std::string path); // of the socket; does not connect yet
    StreamClient(StreamClient &&other) noexcept;
    StreamClient &operator=(StreamClient &&other) noexcept;
    ~StreamClient();

    // Tries to connect unless connected. That nobody listens yet, or that it fails otherwise, is
    // reported by status(): call it again at intervals.
    void connect();

    // The descriptor to poll for readability, close-on-exec and non-blocking; -1 while not
    // connected. It stays the client's, and changes with every connection.
    int fd() const;

    // Called once for each payload, which is valid during the call. False ends the receiving: what
    // was read beyond is handed on together with what the next read brings, be it the end.
    using Sink = std::function<bool(std::span<const std::uint8_t> payload)>;

    // One read of what the socket holds, at most 64 KiB; call it when the descriptor is readable.
    // Closes the connection at end of file, on an error and when a length is absurd; does nothing
    // while not connected.
    void receive(const Sink &sink);

    // What last became of the connection. It changes only when there is something new to say: a
    // daemon that closes every connection at once stays Closed until a connection brings a record
    // or has stood for a second.
    enum class State {
        Waiting,   // none yet: nobody listens, or another reason
        Connected, // and silent only while there are no results
        Closed,    // by the daemon, between two records
        Broken,    // ended within a record, by an error or because something else listens there
    };
    State state() const { return outcome_.state; }

    // The same for people: "connected", "waiting for PATH: nobody listens", "closed by the daemon",
    // ...; empty before the first connect().
    const std::string &status() const { return outcome_.text; }

private:
    struct Connection;
    struct Outcome {
        State state = State::Waiting;
        std::string text;
    };

    void read_once();
    bool take_frames(const Sink &sink); // false when the sink had enough
    void say_connected();
    void disconnect();

    std::string path_;
    Outcome outcome_;
    bool turned_away_ = false;               // the last connection ended at once, without a record
    std::unique_ptr<Connection> connection_; // null while not connected
};

} // namespace va
