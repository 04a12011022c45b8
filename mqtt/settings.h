#pragma once

#include "tools/common/messages.h"
#include "tools/common/source.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

// The settings of va_mqtt: from its command line, and from a file whose keys are the names of the
// long options. The command line overrides the file.
namespace va::mqtt
{

struct Settings {
    std::string file;
    bool forget = false; // take back what is retained, and end

    std::vector<std::string> hosts = {"localhost"}; // of the broker; one or more
    int port = 0;                                   // 0: the default, with TLS another than without
    std::string client_id;
    int keep_alive = 15; // seconds
    std::string username;
    std::string password_file;
    std::string ca_file; // with it the connection is TLS
    std::string certificate;
    std::string key;

    CameraNames names;
    std::string discovery; // prefix of Home Assistant's discovery topics; empty: none
    bool reconfig = false; // a message of its topic has the daemon read its settings
    int qos = 1;           // of events
    double rate = 5;       // frames a second and stream; 0: none
    int keep = 1000;       // events, while the broker is away
    std::string spool;     // file of theirs; empty: none

    std::string still;           // file of a JPEG; empty: none
    int still_interval = 5;      // seconds from one to the next, at least
    int still_size = 256 * 1024; // bytes of the largest
};

// Fills `settings` and `source` and checks them. Returns false when help or version was asked for
// and printed. Throws WrongUse, and std::system_error for a file that cannot be read.
bool read_settings(std::span<char *> arguments, Settings &settings, Source &source);

} // namespace va::mqtt
