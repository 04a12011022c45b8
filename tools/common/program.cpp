#include "tools/common/program.h"

#include "ipc/network/fd.h"
#include "tools/common/replay.h"
#include "tools/common/standard_output.h"
#include "tools/common/watch.h"

#include <csignal>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

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

int print_records(const Source &source, std::vector<std::unique_ptr<Printer>> printers,
                  Selection selection)
{
    Output output(std::move(printers), source.count, std::move(selection));
    try {
        if (source.capture.empty())
            output.tell(&Printer::finish, watch(source, output));
        else
            replay(source, output);
    } catch (const OutputEnded &) {
    }
    return output.any() ? RECORDS_CAME : NO_RECORDS;
}
