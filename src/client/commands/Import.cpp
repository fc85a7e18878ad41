#include "client/commands/Import.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <system_error>

#include "client/commands/CommandOutput.h"
#include "client/model/Requests.h"
#include "client/text/Interrupt.h"
#include "client/text/LineReader.h"
#include "client/text/ProgressBar.h"
#include "contract/Actions.h"
#include "host/text/LumSystemError.h"

namespace {

using Json = nlohmann::ordered_json;

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r") == std::string::npos;
}

/// One import from its first line to its count.
class Importer {
public:
    Importer(CommandContext& context, const ModelDefinition& definition, std::istream& in,
             uint64_t totalBytes)
        : context_(context),
          definition_(definition),
          lines_(in),
          totalBytes_(totalBytes),
          progress_(context.console.err, context.console.errIsTerminal) {}

    ExitStatus Run(uint64_t fromLine) {
        const InterruptScope interrupt;
        std::string line;
        LineReader::Line read = lines_.Next(line);
        for (; read != LineReader::Line::kEnd && exit_ != ExitStatus::kNoAgent; read = lines_.Next(line)) {
            if (InterruptScope::WasInterrupted()) {
                exit_ = ExitStatus::kInterrupted;
                break;
            }
            if (lines_.GetNumber() < fromLine) {
                continue;
            }
            if (read == LineReader::Line::kTooLong) {
                Refuse("it is longer than 16 MiB");
            } else if (!IsBlank(line)) {
                ImportLine(line);
            }
            progress_.Update(lines_.GetBytes(), totalBytes_, imported_);
        }
        progress_.Erase();
        if (exit_ == ExitStatus::kInterrupted) {
            context_.console.err << "lumctl: stopped before line " << lines_.GetNumber() << "; --from-line "
                                 << lines_.GetNumber() << " goes on\n";
        }
        Report();
        return exit_;
    }

private:
    void ImportLine(const std::string& line) {
        Json eventParams;
        std::string error;
        if (!ImportEventParams(definition_, line, eventParams, error)) {
            Refuse(error);
            return;
        }
        const AgentAnswer answer = CallAction(context_.agent, actions::kCreateEvent,
                                              CreateRequest(definition_.name, std::move(eventParams)));
        if (answer.IsDone()) {
            ++imported_;
            return;
        }
        Refuse(answer.error);
        PrintMessages(context_, answer);
        exit_ = answer.exit;
        if (exit_ == ExitStatus::kNoAgent) {
            context_.console.err << "lumctl: whether that line was taken is not known; --from-line "
                                 << lines_.GetNumber() << " goes on with it\n";
        }
    }

    void Refuse(const std::string& reason) {
        progress_.Erase();
        ++failed_;
        exit_ =
            Fail(context_, ExitStatus::kFailed, "line " + std::to_string(lines_.GetNumber()) + ": " + reason);
    }

    void Report() {
        if (context_.output == OutputFormat::kJson) {
            PrintJson(context_, {{"imported", imported_}, {"failed", failed_}});
            return;
        }
        context_.console.out << imported_ << (imported_ == 1 ? " event" : " events") << " imported, "
                             << failed_ << (failed_ == 1 ? " line" : " lines") << " failed\n";
        if (!definition_.enabled && imported_ > 0) {
            context_.console.out << "Model '" << definition_.name
                                 << "' is disabled, so the agent dropped these events.\n";
        }
    }

    CommandContext& context_;
    const ModelDefinition& definition_;
    LineReader lines_;
    const uint64_t totalBytes_;
    ProgressBar progress_;
    uint64_t imported_ = 0;
    uint64_t failed_ = 0;
    ExitStatus exit_ = ExitStatus::kDone;
};

}  // namespace

ExitStatus ImportEvents(CommandContext& context, const ImportOptions& options) {
    const std::string& path = options.file;
    std::ifstream file;
    std::error_code noSize;
    uint64_t totalBytes = 0;
    if (path != "-") {
        if (std::filesystem::is_directory(path, noSize)) {
            return Fail(context, ExitStatus::kFailed, path + ": it is a directory");
        }
        file.open(path, std::ios::binary);
        if (!file) {
            return Fail(context, ExitStatus::kFailed, path + ": " + std::string(LumSystemErrorText().View()));
        }
        const uintmax_t size = std::filesystem::file_size(path, noSize);
        totalBytes = noSize ? 0 : size;  // a pipe has none, and then the bar shows the count alone
    }
    ModelDefinition definition;
    const ExitStatus found = FetchModel(context, options.model, definition);
    if (found != ExitStatus::kDone) {
        return found;
    }
    return Importer(context, definition, path == "-" ? context.console.in : file, totalBytes)
        .Run(options.fromLine);
}
