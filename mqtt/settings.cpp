#include "mqtt/settings.h"

#include "mqtt/settings_file.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <vector>

#include <mosquitto.h>
#include <unistd.h>

namespace va::mqtt
{

namespace
{

constexpr char introduction[] =
    "usage: va_mqtt [option...]\n"
    "Tells an MQTT broker what the video-analytics daemon sees: frames of objects and faces, "
    "events\n"
    "of lines, areas, tampering and tracks, the shapes of the settings. Waits for both.\n"
    "\n";
constexpr char ending[] = "\n"
                          "A line of a file of settings is the name of an option, =, its value.\n"
                          "Ends with 0 when it is told to, 1 after an error, 2 when it is used "
                          "wrongly.\n";

constexpr char broker[] = "The broker:";
constexpr char topics[] = "What is told:";
constexpr char files[] = "All of them:";

constexpr int usual_port = 1883;
constexpr int usual_tls_port = 8883;

std::string host_name()
{
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

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

void choose_streams(const std::string &names, Source &source)
{
    std::vector<Stream> chosen;
    for (std::size_t begin = 0; begin <= names.size();) {
        const std::size_t end = std::min(names.find(',', begin), names.size());
        const std::string name = names.substr(begin, end - begin);
        const auto stream = find_stream(name);
        if (!stream)
            throw WrongUse("no stream is called " + name);
        chosen.push_back(*stream);
        begin = end + 1;
    }
    std::erase_if(source.streams,
                  [&](Stream stream) { return !std::ranges::count(chosen, stream); });
}

OptionTable options_of(Settings &settings, Source &source)
{
    OptionTable table = {
        {broker, 0, "host", "HOST", "name or address, default localhost", text_into(settings.host)},
        {broker, 0, "port", "PORT", "default 1883, with TLS 8883",
         number_into(settings.port, 1, 65535, "port")},
        {broker, 0, "client-id", "TEXT", "default va_mqtt- and the prefix",
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
         [&](const char *text) { settings.keep = parse_count(text, "number of events"); }},
        {topics, 0, "discovery", "TOPIC", "for Home Assistant, which wants homeassistant",
         text_into(settings.discovery)},
    };
    std::ranges::move(source_options(source), std::back_inserter(table));
    return table;
}

// Has each row remember that it was used.
OptionTable remembering(OptionTable table, std::set<std::string> &used)
{
    for (Option &row : table) {
        row.set = [&used, name = row.name, set = row.set](const char *text) {
            set(text);
            used.insert(name);
        };
    }
    return table;
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

void check_settings(const Settings &settings)
{
    check_text(settings.host, "the host");
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

void fill_in(Settings &settings)
{
    if (settings.port == 0)
        settings.port = settings.ca_file.empty() ? usual_port : usual_tls_port;
    if (settings.client_id.empty())
        settings.client_id = "va_mqtt-" + settings.names.prefix;
}

} // namespace

bool read_settings(std::span<char *> arguments, Settings &settings, Source &source)
{
    settings.names.prefix = host_name();
    source = default_source();
    const OptionTable table = options_of(settings, source);
    OptionTable written = table;
    written.push_back({files, 0, "settings", "FILE", "a file of settings, which options overrule",
                       text_into(settings.file)});
    std::set<std::string> said;
    std::span<char *> operands;
    if (!parse_command_line(arguments, remembering(written, said), {introduction, ending},
                            operands))
        return false;
    if (!operands.empty())
        throw WrongUse(std::string(operands[0]) + " is no option");
    if (!settings.file.empty())
        read_settings_file(settings.file, table, said);
    fill_in(settings);
    check_settings(settings);
    check(source);
    return true;
}

} // namespace va::mqtt
