#include <cerrno>
#include <ostream>

#include <unistd.h>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/connection/DataDirectory.h"
#include "client/query/EventViews.h"
#include "client/query/QueryWriter.h"
#include "client/text/Suggestion.h"
#include "host/text/LumSystemError.h"

namespace {

constexpr std::string_view kNoTable = "no such table: ";

/// SQLite's message, with the view that may have been meant.
std::string DescribeFault(const LumString& fault, const std::vector<std::string>& views) {
    std::string text(fault.View());
    if (text.starts_with(kNoTable)) {
        const std::string name = text.substr(kNoTable.size());
        const std::string hint = DidYouMean(name, views);
        text += hint.empty() ? DidYouMean("v_" + name, views) : hint;
    }
    return text;
}

}  // namespace

ExitStatus QueryDatabase(CommandContext& context, const QueryOptions& options) {
    const std::string path = options.database.value_or(DatabaseIn(GuessDataDirectory(context.agent)));
    if (access(path.c_str(), R_OK) != 0) {
        return Fail(
            context, ExitStatus::kFailed,
            path + ": " + std::string(LumSystemErrorText().View()) +
                (errno == EACCES ? "; query reads the database file itself, which is open to the agent's "
                                   "user and root: use sudo"
                                 : "; --database PATH names the file"));
    }
    DBReader reader;
    LumString fault;
    std::string error;
    std::vector<std::string> views;
    if (!reader.Open(LumString(path), fault)) {
        return Fail(context, ExitStatus::kFailed, path + ": " + std::string(fault.View()));
    }
    if (!DefineEventViews(reader, views, error)) {
        return Fail(context, ExitStatus::kFailed, path + ": it is not a database of events: " + error);
    }
    if (!reader.Begin(LumString(options.sql), fault)) {
        return Fail(context, ExitStatus::kWrongCommandLine, DescribeFault(fault, views));
    }
    QueryWriter writer(context.output, reader, context.console.out, context.console.colours);
    DBReader::Step step = reader.Next(fault);
    for (; step == DBReader::Step::kRow; step = reader.Next(fault)) {
        writer.WriteRow();
    }
    writer.End();
    return step == DBReader::Step::kEnd ? ExitStatus::kDone
                                        : Fail(context, ExitStatus::kFailed, fault.View());
}
