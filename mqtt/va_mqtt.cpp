#include "mqtt/publisher.h"
#include "mqtt/settings.h"
#include "tools/common/program.h"

#include <cstdlib>

int main(int argc, char **argv)
{
    return run_program([&]() -> int {
        Settings settings;
        Source source;
        if (!read_settings({argv, static_cast<std::size_t>(argc)}, settings, source))
            return EXIT_SUCCESS;
        std::vector<std::unique_ptr<Printer>> printers;
        printers.push_back(std::make_unique<Publisher>(settings, source));
        print_records(source, std::move(printers)); // also when there were none
        return EXIT_SUCCESS;
    });
}
