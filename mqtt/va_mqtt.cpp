#include "mqtt/forget.h"
#include "mqtt/publisher.h"
#include "mqtt/settings.h"
#include "tools/common/program.h"

#include <cstdlib>

int main(int argc, char **argv)
{
    return va::run_program([&]() -> int {
        va::mqtt::Settings settings;
        va::Source source;
        if (!va::mqtt::read_settings({argv, static_cast<std::size_t>(argc)}, settings, source))
            return EXIT_SUCCESS;
        if (settings.forget) {
            va::mqtt::forget(settings);
            return EXIT_SUCCESS;
        }
        std::vector<std::unique_ptr<va::RecordSink>> printers;
        printers.push_back(std::make_unique<va::mqtt::Publisher>(settings, source));
        va::print_records(source, std::move(printers)); // also when there were none
        return EXIT_SUCCESS;
    });
}
