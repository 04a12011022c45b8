#pragma once

#include "tests/support/temp_dir.h"

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

// The files a daemon finds below its working directory: firmware, store, scene, results of a run.
class DaemonFiles
{
public:
    DaemonFiles(); // sample firmware; a store that names a supported sensor

    std::string file(const std::string &name) const { return dir_.file(name); }
    const std::string &path() const { return dir_.path(); }

    void write(const std::string &name, const std::string &content) const;
    std::string read(const std::string &name) const;

    // Replaces the store: a supported sensor and `lines`.
    void store(const std::string &lines) const;

private:
    TempDir dir_;
};

// The real daemon as a child process on the stand-in. Its working directory, and so all it touches,
// is that of `files`. Killed when left running.
class Daemon
{
public:
    explicit Daemon(const DaemonFiles &files, std::vector<std::string> arguments = {},
                    const std::string &output = "out");
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;

    // Bounded waits; false when the bound is passed.
    bool wait_for_output(const std::string &text, int times = 1) const; // standard output
    bool wait_for_log(const std::string &text, int times = 1) const;    // standard error
    bool wait_for_exit();                                               // with status 0

    std::string output() const { return files_.read(output_); }
    std::string log() const { return files_.read(output_ + ".err"); }

private:
    const DaemonFiles &files_;
    std::string output_;
    pid_t pid_ = -1;
};

// A client of a result socket.
class Client
{
public:
    explicit Client(const std::string &path); // waits for the socket
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    int fd() const { return fd_; }
    // The payload of the next record; false at the end of the stream or when none comes in time.
    bool next(std::string &payload) const;

private:
    bool read_all(void *data, std::size_t length) const;
    int fd_ = -1;
};
