#include "tools/common/program.h"

#include "ipc/network/fd.h"
#include "tools/common/capture.h"
#include "tools/common/output.h"
#include "tools/common/standard_output.h"
#include "tools/common/watch.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

namespace
{

// Hands on the wanted records of the capture. Throws std::runtime_error, after all whole records,
// when its end is missing.
void replay(const Source &source, Output &output)
{
    Elapsed last{};
    const std::string fault = read_capture(source.capture, [&](const Record &record) {
        last = record.at;
        if (source.time_limit && last > *source.time_limit)
            return false;
        return std::ranges::count(source.streams, &record.kind) == 0 || output.print(record);
    });
    output.tell(&Printer::finish, last);
    if (!fault.empty())
        throw std::runtime_error(source.capture + ": " + fault);
}

} // namespace

const char EXIT_STATUSES[] =
    "\n"
    "Ends with 0 when records came, 1 after an error, 2 when it is used wrongly, 3 when no record\n"
    "came.\n";

int run_program(const std::function<int()> &body)
{
    va::open_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return body();
    } catch (const OutputEnded &) {
        return RECORDS_CAME; // of what it says of itself
    } catch (const WrongUse &wrong) {
        say(std::string(wrong.what()) + " (--help tells more)");
        return USED_WRONGLY;
    } catch (const std::bad_alloc &) {
        say("out of memory");
    } catch (const std::exception &error) {
        say(error.what());
    }
    return FAILED;
}

int print_records(const Source &source, std::vector<std::unique_ptr<Printer>> printers)
{
    Output output(std::move(printers), source.count);
    try {
        if (source.capture.empty())
            output.tell(&Printer::finish, watch(source, output));
        else
            replay(source, output);
    } catch (const OutputEnded &) {
    }
    return output.any() ? RECORDS_CAME : NO_RECORDS;
}
