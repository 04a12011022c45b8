#include "mqtt/settings.h"

#include "tools/common/printing.h"
#include "tools/common/still_file.h"
#include "util/file.h"
#include "util/text.h"

#include <algorithm>
#include <cinttypes>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

#include <mosquitto.h>

namespace va::mqtt
{

namespace
{

constexpr char introduction[] =
    "usage: va_mqtt [option...]\n"
    "Publishes to an MQTT broker what the video-analytics daemon sees: frames of objects and "
    "faces,\n"
    "events of lines, areas, tampering and tracks, the shapes in force. Waits for both.\n"
    "\n";
constexpr char ending[] = "\n"
                          "A line of a settings file is the name of an option, =, its value.\n"
                          "Exits with 0 when it is ended, 1 after an error, 2 when it is used "
                          "wrongly.\n";

constexpr char broker[] = "The broker:";
constexpr char topics[] = "What is published:";
constexpr char files[] = "All of them:";

constexpr int default_port = 1883;
constexpr int default_tls_port = 8883;

auto text_into(std::string &target)
{
    return [&target](const char *text) { target = text; };
}

auto number_into(int &target, int smallest, int largest, const char *what)
{
    return [&target, smallest, largest, what](const char *text) {
        const double number = parse_decimal(text, smallest, largest, what);
        target = static_cast<int>(number);
        if (target != number)
            throw WrongUse(std::string(text) + " is no " + what);
    };
}

std::string trimmed(const std::string &text)
{
    constexpr char blanks[] = " \t\r";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

std::vector<std::string> names_in(const char *text)
{
    std::vector<std::string> names;
    std::istringstream parts(text);
    for (std::string name; std::getline(parts, name, ',');)
        names.push_back(trimmed(name));
    return names;
}

void choose_streams(const char *text, Source &source)
{
    std::set<Stream> chosen;
    for (const std::string &name : names_in(text)) {
        const auto stream = find_stream(name);
        if (!stream)
            throw WrongUse("no stream is called " + name);
        chosen.insert(*stream);
    }
    if (chosen.empty())
        throw WrongUse("no stream is named");
    std::erase_if(source.streams, [&](Stream stream) { return !chosen.contains(stream); });
}

OptionTable options_of(Settings &settings, Source &source)
{
    OptionTable table = {
        {broker, 0, "host", "HOSTS", "names or addresses, with commas; default localhost",
         [&](const char *text) { settings.hosts = names_in(text); }},
        {broker, 0, "port", "PORT", "default 1883, with TLS 8883",
         number_into(settings.port, 1, 65535, "port")},
        {broker, 0, "client-id", "TEXT", "default va_mqtt-, prefix, machine",
         text_into(settings.client_id)},
        {broker, 0, "keep-alive", "SECONDS", "default 15",
         number_into(settings.keep_alive, 5, 65535, "number of seconds from 5 on")},
        {broker, 0, "username", "TEXT", "none by default", text_into(settings.username)},
        {broker, 0, "password-file", "FILE", "its first line; not open to others",
         text_into(settings.password_file)},
        {broker, 0, "cafile", "FILE", "certificates that are trusted; makes it TLS",
         text_into(settings.ca_file)},
        {broker, 0, "cert", "FILE", "this camera's certificate,", text_into(settings.certificate)},
        {broker, 0, "key", "FILE", "and its key", text_into(settings.key)},
        {topics, 0, "prefix", "TOPIC", "in front of all topics, default the host name",
         text_into(settings.names.prefix)},
        {topics, 0, "video-source", "NAME", "default " + settings.names.video_source,
         text_into(settings.names.video_source)},
        {topics, 0, "analytics", "NAME", "default " + settings.names.analytics,
         text_into(settings.names.analytics)},
        {topics, 0, "profile", "NAME", "default " + settings.names.profile,
         text_into(settings.names.profile)},
        {topics, 0, "streams", "NAMES", "of od, vmf, fd, ta, with commas; default all",
         [&](const char *text) { choose_streams(text, source); }},
        {topics, 0, "rate", "NUMBER", "frames a second at most, default 5; 0: none",
         [&](const char *text) {
             settings.rate = parse_decimal(text, 0, 1000, "number of frames a second");
         }},
        {topics, 0, "qos", "NUMBER", "of events: 0, 1 (default) or 2",
         number_into(settings.qos, 0, 2, "quality of service")},
        {topics, 0, "keep", "NUMBER", "events while the broker is away, default 1000",
         number_into(settings.keep, 1, 1'000'000, "number of events up to 1000000")},
        {topics, 0, "spool", "FILE", "those survive the end and a power cut in it",
         text_into(settings.spool)},
        {topics, 0, "allow", "reconfig", "let who may write its topic reload the settings",
         [&](const char *text) {
             settings.reconfig = std::string_view(text) == "reconfig";
             if (!settings.reconfig)
                 throw WrongUse(text + std::string(" is nothing that can be allowed"));
         }},
        {topics, 0, "still", "FILE", "a JPEG of the video, as va_video keeps it up to date",
         text_into(settings.still)},
        {topics, 0, "still-interval", "SECONDS", "at least, between two stills, default 5",
         number_into(settings.still_interval, 1, 3600, "number of seconds up to 3600")},
        {topics, 0, "still-size", "BYTES", "of the largest still, default 262144",
         number_into(settings.still_size, 1, StillFile::LARGEST, "number of bytes up to 4000000")},
        {topics, 0, "discovery", "TOPIC", "for Home Assistant, which wants homeassistant",
         text_into(settings.discovery)},
    };
    std::ranges::move(source_options(source), std::back_inserter(table));
    return table;
}

// The table whose rows also record that they were used.
OptionTable recording_use(OptionTable table, std::set<std::string> &used)
{
    for (Option &row : table) {
        row.set = [&used, name = row.name, set = row.set](const char *text) {
            set(text);
            used.insert(name);
        };
    }
    return table;
}

// Sets what a line of the file says unless the command line said it.
void apply_line(const std::string &line, const OptionTable &table,
                const std::set<std::string> &given, std::set<std::string> &read)
{
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos)
        throw WrongUse("no =");
    const std::string name = trimmed(line.substr(0, equals));
    const auto row = std::ranges::find(table, name, &Option::name);
    if (row == table.end())
        throw WrongUse("there is no setting " + name);
    if (!read.insert(name).second)
        throw WrongUse(name + " is set twice");
    if (!given.contains(name))
        row->set(trimmed(line.substr(equals + 1)).c_str());
}

// A settings file is small: what is not is something else, such as a device that never ends.
std::string read_small(const std::string &path)
{
    constexpr std::size_t largest = 1 << 16;
    std::ifstream file(path);
    std::string text(largest + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad() || (!file.eof() && file.gcount() == 0))
        throw_file_error(path);
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > largest)
        throw WrongUse(path + " is too large for a file of settings");
    return text;
}

// Blank lines and those that begin with # say nothing; rows named in `given` stay as they are.
void read_settings_file(const std::string &path, const OptionTable &table,
                        const std::set<std::string> &given)
{
    std::istringstream lines(read_small(path));
    std::set<std::string> read;
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#')
            continue;
        try {
            if (line.find('\0') != line.npos)
                throw WrongUse("holds a zero byte");
            apply_line(line, table, given, read);
        } catch (const WrongUse &wrong) {
            throw WrongUse(path + ':' + std::to_string(number) + ": " + wrong.what());
        }
    }
}

bool is_utf8(const std::string &text)
{
    return mosquitto_validate_utf8(text.c_str(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
}

void check_topic(const std::string &topic, const char *what)
{
    constexpr std::size_t longest = 1000;
    const bool fits = !topic.empty() && topic.size() <= longest && !topic.starts_with('/') &&
                      !topic.ends_with('/') && !topic.starts_with('$') &&
                      mosquitto_pub_topic_check2(topic.c_str(), topic.size()) == MOSQ_ERR_SUCCESS &&
                      is_utf8(topic);
    if (!fits)
        throw WrongUse(topic + " is no " + what +
                       ": empty, too long, not UTF-8, / at an end, $ in front, or with + or #");
}

void check_text(const std::string &text, const char *what)
{
    if (text.empty() || !is_utf8(text))
        throw WrongUse(std::string(what) + " is empty or not UTF-8");
}

void check_level(const std::string &name, const char *what)
{
    check_text(name, what);
    if (name.find_first_not_of("#+/") == std::string::npos)
        throw WrongUse(std::string(what) + " holds nothing that can stand in a topic");
}

// Brokers that have other separators of their own change these, or close the connection.
void warn_of_names(const CameraNames &names)
{
    for (const std::string &name :
         {names.prefix, names.video_source, names.analytics, names.profile}) {
        if (name.find_first_of(". ") != name.npos)
            say('"' + name + "\" has a dot or a blank, which some brokers do not take in a topic");
    }
}

// Cameras that are copies of one another differ, also where nobody has given them names. The
// machine's number itself is not for others.
std::string default_client_id(const Settings &settings)
{
    std::ifstream file("/etc/machine-id");
    std::string machine;
    if (!std::getline(file, machine))
        return "va_mqtt-" + settings.names.prefix;
    const auto part = static_cast<std::uint32_t>(std::hash<std::string>()("va_mqtt " + machine));
    return formatted("va_mqtt-%s-%08" PRIx32, settings.names.prefix.c_str(), part);
}

void check_settings(const Settings &settings)
{
    if (settings.hosts.empty())
        throw WrongUse("no host is named");
    for (const std::string &host : settings.hosts)
        check_text(host, "a host");
    check_topic(settings.names.prefix, "prefix");
    if (!settings.discovery.empty())
        check_topic(settings.discovery, "prefix of discovery");
    check_text(settings.client_id, "the client id");
    check_level(settings.names.video_source, "the video source");
    check_level(settings.names.analytics, "the analytics configuration");
    check_level(settings.names.profile, "the profile");
    if (!settings.password_file.empty() && settings.username.empty())
        throw WrongUse("--password-file needs --username");
    if (settings.certificate.empty() != settings.key.empty())
        throw WrongUse("--cert and --key need each other");
    if (!settings.key.empty() && settings.ca_file.empty())
        throw WrongUse("--cert needs --cafile");
}

} // namespace

bool read_settings(std::span<char *> arguments, Settings &settings, Source &source)
{
    settings.names.prefix = host_name();
    source = Source();
    const OptionTable table = options_of(settings, source);
    OptionTable options = table;
    options.push_back({topics, 0, "forget", nullptr,
                       "take back all that is retained of it, and end",
                       [&](const char *) { settings.forget = true; }});
    options.push_back({files, 0, "settings", "FILE", "a file of settings, which options override",
                       text_into(settings.file)});
    std::set<std::string> given;
    std::span<char *> operands;
    if (!parse_command_line(arguments, recording_use(options, given), {introduction, ending},
                            operands))
        return false;
    if (!operands.empty())
        throw WrongUse(std::string(operands[0]) + " is no option");
    if (!settings.file.empty())
        read_settings_file(settings.file, table, given);
    if (settings.port == 0)
        settings.port = settings.ca_file.empty() ? default_port : default_tls_port;
    if (settings.client_id.empty())
        settings.client_id = default_client_id(settings);
    check_settings(settings);
    warn_of_names(settings.names);
    check(source);
    return true;
}

} // namespace va::mqtt
