#include "tools/va_dump/figures_printer.h"

#include "tools/common/standard_output.h"
#include "tools/common/text.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

namespace
{

double seconds(Elapsed time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

FiguresPrinter::FiguresPrinter(std::vector<const StreamKind *> streams, Elapsed period)
    : streams_(std::move(streams)), period_(period), due_(period)
{
}

void FiguresPrinter::print(const Record &record)
{
    Figures &figures = figures_[index_of(record.kind)];
    if (figures.records > 0)
        figures.longest_pause = std::max(figures.longest_pause, record.at - figures.last);
    figures.last = record.at;
    figures.bytes += record.payload.size();
    ++figures.records;
}

void FiguresPrinter::connection(const Connection &connection)
{
    Figures &figures = figures_[index_of(connection.kind)];
    if (figures.connected && !connection.connected)
        ++figures.disconnects;
    figures.connected = connection.connected;
}

void FiguresPrinter::tick(const Moment &now)
{
    if (now.at < due_)
        return;
    report(now);
    due_ = now.at - now.at % period_ + period_;
}

void FiguresPrinter::report(const Moment &moment)
{
    const Elapsed now = moment.at;
    write_line("stream    records         bytes   records/s  longest pause s  disconnects");
    for (const StreamKind *kind : streams_) {
        const Figures &figures = figures_[index_of(*kind)];
        const Elapsed running = figures.records > 0 ? now - figures.last : Elapsed();
        const double rate =
            now > Elapsed() ? static_cast<double>(figures.records) / seconds(now) : 0.0;
        write_line(formatted("%-6s %10" PRIu64 " %13" PRIu64 " %11.2f %16.3f %12" PRIu64,
                             kind->name.data(), figures.records, figures.bytes, rate,
                             seconds(std::max(figures.longest_pause, running)),
                             figures.disconnects));
    }
}
