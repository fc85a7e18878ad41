#include <array>
#include <climits>
#include <ctime>
#include <fstream>
#include <ostream>

#include <unistd.h>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/report/ReportPage.h"
#include "client/report/ReportReader.h"
#include "client/text/ProgressBar.h"
#include "client/text/Quantity.h"
#include "client/text/TimeText.h"
#include "host/text/LumSystemError.h"

namespace {

std::string HostName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    static_cast<void>(gethostname(name.data(), name.size()));  // there is room for any name
    return name.data();
}

}  // namespace

ExitStatus WriteReport(CommandContext& context, const ReportOptions& options) {
    ReportData data;
    data.host = HostName();
    data.made = std::time(nullptr);
    data.until = options.until ? int64_t{*options.until} : data.made;
    data.since = options.since ? int64_t{*options.since} : StartOfLocalDay(data.until, kDefaultDays - 1);
    if (data.since > data.until) {
        return Fail(context, ExitStatus::kWrongCommandLine, "--since is later than --until");
    }
    // The file comes first: nobody waits for the events of a page that cannot be written.
    std::ofstream file;
    const bool toFile = options.file != "-";
    if (toFile) {
        file.open(options.file, std::ios::binary | std::ios::trunc);
        if (!file) {
            return Fail(context, ExitStatus::kFailed,
                        options.file + ": " + std::string(LumSystemErrorText().View()));
        }
    }
    ProgressBar bar(context.console.err, context.console.errIsTerminal);
    ReadReportData(context.agent, data, [&](uint64_t read) { bar.Update(0, 0, read); });
    bar.Erase();
    std::ostream& out = toFile ? file : context.console.out;
    out << ReportAsHtml(data) << std::flush;
    if (!out) {
        return Fail(context, ExitStatus::kFailed, options.file + ": it could not be written whole");
    }
    if (toFile) {
        context.console.err << "Report of " << CountText(data.CountEvents(), "event") << " written to "
                            << options.file << '\n';
    }
    return ExitStatus::kDone;
}
