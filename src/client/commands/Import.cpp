#include "client/commands/Import.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

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

/// What is sent at once: what the agent can take while the next lines are read, and makes durable together.
constexpr std::size_t kWindowLines = 1000;
constexpr std::size_t kWindowBytes = std::size_t{128} << 10U;

/// Lines that are sent and answered together.
struct Window {
    struct Line {
        uint64_t number;
        std::string refusal;  ///< why it was not sent; empty where it was
    };

    std::vector<Line> lines;
    std::string requests;
    bool isSent = false;
    uint64_t readBytes = 0;  ///< of the file, up to its end

    [[nodiscard]] bool IsFull() const {
        return lines.size() >= kWindowLines || requests.size() >= kWindowBytes;
    }
};

/// One import from its first line to its count. While the agent works on a window the next one is read.
class Importer {
public:
    Importer(CommandContext& context, const ModelDefinition& definition, std::istream& in,
             uint64_t totalBytes)
        : context_(context),
          definition_(definition),
          in_(in),
          lines_(in),
          totalBytes_(totalBytes),
          progress_(context.console.err, context.console.errIsTerminal) {}

    ExitStatus Run(uint64_t fromLine) {
        const InterruptScope interrupt;
        std::string line;
        bool isInterrupted = false;
        while (exit_ != ExitStatus::kNoAgent) {
            const LineReader::Line read = lines_.Next(line);
            isInterrupted = InterruptScope::WasInterrupted() && read != LineReader::Line::kEnd;
            if (read == LineReader::Line::kEnd || isInterrupted) {
                break;
            }
            if (lines_.GetNumber() >= fromLine) {
                TakeLine(read, line);
            }
        }
        const uint64_t next = lines_.GetNumber();
        Exchange();
        Collect();
        progress_.Erase();
        if (isInterrupted && exit_ != ExitStatus::kNoAgent) {
            exit_ = ExitStatus::kInterrupted;
            context_.console.err << "lumctl: stopped before line " << next << "; --from-line " << next
                                 << " goes on\n";
        }
        Report();
        return exit_;
    }

private:
    void TakeLine(LineReader::Line read, const std::string& line) {
        std::string refusal;
        if (read == LineReader::Line::kTooLong) {
            refusal = "it is longer than 16 MiB";
        } else if (IsBlank(line)) {
            return;
        } else {
            try {
                const Json request = CreateRequest(definition_.name, ImportEventParams(definition_, line));
                window_.requests += request.dump() + "\n";
            } catch (const ClientError& error) {
                refusal = error.what();
            }
        }
        window_.lines.push_back({lines_.GetNumber(), std::move(refusal)});
        window_.readBytes = lines_.GetBytes();
        if (window_.IsFull()) {
            Exchange();
        } else if (in_.rdbuf()->in_avail() <= 0) {
            Exchange();  // nobody knows when the next line comes
            Collect();
        }
    }

    /// Takes the answers to the window before, and sends this one.
    void Exchange() {
        Collect();
        std::swap(window_, sent_);
        if (exit_ == ExitStatus::kNoAgent || sent_.requests.empty()) {
            return;
        }
        AgentAnswer failure;
        sent_.isSent =
            BeginBatch(context_.agent, actions::kCreateEvent, std::move(sent_.requests), failure.error);
        if (!sent_.isSent) {
            failure.exit = ExitStatus::kNoAgent;
            Settle(failure);
        }
    }

    /// Waits for the answers to what was sent.
    void Collect() {
        if (!sent_.lines.empty() && exit_ != ExitStatus::kNoAgent) {
            Settle(sent_.isSent ? EndAction(context_.agent) : AgentAnswer());
        }
        sent_ = {};
    }

    /// Says of each line of the window what became of it.
    void Settle(const AgentAnswer& answers) {
        std::istringstream body(answers.body);
        uint64_t asked = 0;
        for (const Window::Line& line : sent_.lines) {
            if (!line.refusal.empty()) {
                Refuse(line.number, line.refusal);
            } else if (!Note(line.number, AnswerTo(++asked, body, answers))) {
                SayWhatIsUnknown(line.number);
                break;
            }
        }
        progress_.Update(sent_.readBytes, totalBytes_, imported_);
    }

    /// The answer to the line that was the `asked`th of its window: the next one in `body`, or what is to be
    /// said of all that have none.
    static AgentAnswer AnswerTo(uint64_t asked, std::istream& body, const AgentAnswer& answers) {
        std::string text;
        uint64_t number = 0;
        if (std::getline(body, text) && !body.eof()) {  // without its end it is not whole
            AgentAnswer answer = ReadBatchAnswer(actions::kCreateEvent, text, number);
            if (number == asked) {
                return answer;
            }
        }
        if (!answers.IsDone()) {
            return answers;
        }
        AgentAnswer missing;
        missing.exit = ExitStatus::kFailed;
        missing.error = "the agent did not answer it";
        return missing;
    }

    /// False where nothing is known of the line, nor of those after it.
    bool Note(uint64_t number, const AgentAnswer& answer) {
        if (answer.IsDone()) {
            ++imported_;
            return true;
        }
        Refuse(number, answer.error);
        PrintMessages(context_, answer);
        exit_ = answer.exit;
        return exit_ != ExitStatus::kNoAgent;
    }

    void SayWhatIsUnknown(uint64_t first) {
        const uint64_t last = sent_.lines.back().number;
        context_.console.err << "lumctl: whether ";
        if (first == last) {
            context_.console.err << "that line was taken is not known; --from-line " << first
                                 << " goes on with it\n";
        } else {
            context_.console.err << "lines " << first << " to " << last
                                 << " were taken is not known; --from-line " << first
                                 << " goes on with them\n";
        }
    }

    void Refuse(uint64_t number, const std::string& reason) {
        progress_.Erase();
        ++failed_;
        exit_ = Fail(context_, ExitStatus::kFailed, "line " + std::to_string(number) + ": " + reason);
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
    std::istream& in_;
    LineReader lines_;
    const uint64_t totalBytes_;
    ProgressBar progress_;
    Window window_;  // being read
    Window sent_;    // being answered
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
    const ModelDefinition definition = FetchModel(context.agent, options.model);
    return Importer(context, definition, path == "-" ? context.console.in : file, totalBytes)
        .Run(options.fromLine);
}
