#pragma once

#include "client/frame_reader.h"
#include "tests/support/program.h"
#include "tests/support/temp_dir.h"
#include "util/fd.h"
#include "util/util.h"

#include <csignal>
#include <optional>
#include <string>
#include <vector>

// The files a daemon finds below its working directory: firmware, store, scene, what it makes in
// run/.
class DaemonFiles : public TempDir
{
public:
    DaemonFiles(); // sample firmware; a store that names a supported sensor

    void write(const std::string &name, const std::string &content) const;
    std::string read(const std::string &name) const { return read_file(file(name)); }

    // Replaces the store: a supported sensor and `lines`.
    void store(const std::string &lines) const;
    // Has a running daemon read these settings; does not wait for one that has died.
    void reconfigure(const std::string &lines) const
    {
        store(lines);
        pipe_write_str(file("run/ctrl").c_str(), "reconfig\n");
    }
};

// The real daemon on the stand-in. Its working directory, and so all it touches, is that of
// `files`.
struct Daemon : Program {
    explicit Daemon(const DaemonFiles &files, std::vector<std::string> arguments = {},
                    const std::string &output = "out");

    // Whether the signal ends it in good order, without a leak where that is looked for.
    bool stop(int signal = SIGTERM);

    const DaemonFiles &files;
};

// A client of a result socket.
class Client
{
public:
    explicit Client(const std::string &path); // waits for the socket

    int fd() const { return fd_.get(); }
    // The payload of the next record; nothing at the end of the stream or when none comes in time.
    std::optional<std::string> next();

private:
    Fd fd_;
    va::FrameReader reader_;
};
