#include <limits>

#include "client/cli/CommandParser.h"

namespace {

/// What events, export and the pictures have in common.
void AddFilters(CLI::App& command, EventsQuery& query) {
    command.add_option("MODEL", query.model, "The model's name")->required();
    command.add_option("PARAM=VALUE", query.filters, "Only events with this value of a parameter");
    CommandParser::AddTimeOption(command, "--since", query.since, "Only events at this time or later");
    CommandParser::AddTimeOption(command, "--until", query.until, "Only events at this time or earlier");
    command.add_option("--device", query.device, "Only events of this device")->type_name("N");
    command.add_option("--group", query.group, "Only events of this group")->type_name("N");
}

void AddEvents(CommandParser& parser) {
    EventsQuery& query = parser.GetOptions().events;
    CLI::App& events = parser.AddCommand(
        kEventsGroup, "events",
        "Show the events of a model: the newest 100, newest last, unless a time or a page is given",
        [](CommandContext& context, const Options& options) { return ListEvents(context, options.events); },
        {{"events Logon", "The newest 100."},
         {"events Logon --since yesterday", "All since yesterday's midnight."},
         {"events Logon --since 2026-11-20 --until 1h User=ann", "Ann's, in a span of time."},
         {"events Logon --page-size 50 --page 2", "The 50 before the newest 50."},
         {"events Logon --follow", "The newest 100, and what comes from now on; ends with Ctrl-C."},
         {"events Logon --all --output csv > logon.csv", "The whole table for a spreadsheet."}});
    AddFilters(events, query);
    CLI::Option* const size = events.add_option("--page-size", query.pageSize, "At most so many events")
                                  ->check(CLI::Range(1, std::numeric_limits<int32_t>::max()))
                                  ->type_name("N");
    CLI::Option* const page =
        events.add_option("--page", query.page, "The page of that number, counted from 1")
            ->check(CLI::Range(1, std::numeric_limits<int32_t>::max()))
            ->type_name("N");
    CLI::Option* const sort =
        events
            .add_option("--sort", query.sort,
                        "Order by EventDate, EventDeviceId, EventGroupId or a parameter, smallest first")
            ->type_name("COLUMN");
    CLI::Option* const descending = events.add_flag("--desc", query.descending, "Largest, or newest, first");
    events.add_flag("--all", query.all, "All events, however many, oldest first")
        ->excludes(size)
        ->excludes(page);
    events.add_flag("--follow,-f", query.follow, "Go on with the events that come from now on")
        ->excludes(page)
        ->excludes(sort)
        ->excludes(descending);
}

void AddCreate(CommandParser& parser) {
    CreateOptions& options = parser.GetOptions().create;
    CLI::App& create = parser.AddCommand(
        kEventsGroup, "create", "Create one event",
        [](CommandContext& context, const Options& given) { return CreateEvent(context, given.create); },
        {{"create Logon User=ann Outcome=success Origin=local Time=2026-11-21T08:30",
          "Values are typed as the model defines them; what is left out takes the model's default."},
         {"create Logon User=ann Outcome=failure Origin=gate Time=now",
          "A time may also be given as now, yesterday, or 2h for so long ago."}});
    create.add_option("MODEL", options.model, "The model's name")->required();
    create.add_option("PARAM=VALUE", options.assignments, "The event's values");
    create.add_option("--device", options.device, "Device id (0 where not given)")->type_name("N");
    create.add_option("--group", options.group, "Group id (0 where not given)")->type_name("N");
}

void AddPurge(CommandParser& parser) {
    PurgeOptions& options = parser.GetOptions().purge;
    CLI::App& purge = parser.AddCommand(
        kEventsGroup, "purge", "Have a model's old events deleted",
        [](CommandContext& context, const Options& given) { return PurgeEvents(context, given.purge); },
        {{"purge Logon --before 30d --dry-run", "Says how many events would go."},
         {"purge Logon --before 2026-01-01", "Asks, then has the events before that day deleted."}});
    purge.add_option("MODEL", options.model, "The model's name")->required();
    CommandParser::AddTimeOption(purge, "--before", options.before,
                                 "Delete the events before this time (now where not given, so all of them)");
    purge.add_flag("--yes,-y", options.yes, "Do not ask");
    purge.add_flag("--dry-run,-n", options.dryRun, "Say how many events would go, and delete none");
}

void AddQuery(CommandParser& parser) {
    CLI::App& query = parser.AddCommand(
        kEventsGroup, "query",
        "Read the database with SQL: each model is a view v_MODEL with plain names and local times; needs no "
        "agent",
        [](CommandContext& context, const Options& options) { return QueryDatabase(context, options.query); },
        {{"query \"SELECT User, count(*) FROM v_Logon GROUP BY User ORDER BY 2 DESC\"", "Who logs on most."},
         {"query \"SELECT * FROM v_Logon WHERE EventDate >= '2026-11-20'\" --output csv",
          "For a spreadsheet."}});
    query.add_option("SQL", parser.GetOptions().query.sql, "One statement that reads")->required();
    query
        .add_option(
            "--database", parser.GetOptions().query.database,
            "The database file (EventLogManager/EventLogManager.sqlite3 beside the socket, else below "
            "/var/lib/lumagent)")
        ->type_name("PATH");
}

}  // namespace

void AddEventCommands(CommandParser& parser) {
    AddEvents(parser);
    AddCreate(parser);
    parser.AddModelCommand(
        kEventsGroup, "upload", "Have a model's new events sent to the Master",
        [](CommandContext& context, const Options& options) { return UploadEvents(context, options.model); },
        {{"upload Logon", "Queues the upload; lumctl outbox shows the files that come of it."}});
    AddPurge(parser);
}

void AddPictureCommands(CommandParser& parser) {
    ChartOptions& chart = parser.GetOptions().chart;
    CLI::App& bars = parser.AddCommand(
        kPicturesGroup, "chart",
        "Show events over time as bars: the last 24 hours by hour, or the last 30 days by day",
        [](CommandContext& context, const Options& options) { return ShowChart(context, options.chart); },
        {{"chart PackageHistory", "The last 30 days."},
         {"chart Logon --by hour --per Outcome", "The last 24 hours, a line for each outcome."},
         {"chart Logon --since 2026-10-01 --until 2026-10-31 User=ann", "One user's October."}});
    AddFilters(bars, chart.query);
    bars.add_option_function<std::string>(
            "--by",
            [&chart](const std::string& period) {
                if (period != "hour" && period != "day") {
                    throw CLI::ValidationError("--by", "'" + period + "' is not one of hour, day");
                }
                chart.byHour = period == "hour";
            },
            "The local period of each bar (day)")
        ->type_name("hour|day");
    bars.add_option("--per", chart.per, "A line for each device, group or value of a parameter")
        ->type_name("device|group|PARAM");
    ReportOptions& report = parser.GetOptions().report;
    CLI::App& page = parser.AddCommand(
        kPicturesGroup, "report", "Write one HTML page with pictures of all models' events",
        [](CommandContext& context, const Options& options) { return WriteReport(context, options.report); },
        {{"report october.html --since 2026-10-01 --until 2026-10-31",
          "Open it in any browser, or print it."}});
    page.add_option("FILE", report.file, "The page, which is replaced; - is standard output")->required();
    CommandParser::AddTimeOption(page, "--since", report.since, "From this time on (30 days ago)");
    CommandParser::AddTimeOption(page, "--until", report.until, "Up to this time (now)");
}

void AddTransferCommands(CommandParser& parser) {
    ExportOptions& exported = parser.GetOptions().exported;
    exported.query.all = true;
    CLI::App& write = parser.AddCommand(
        kEventsGroup, "export", "Write a model's events to a file, one JSON object a line (or --output csv)",
        [](CommandContext& context, const Options& options) {
            return ExportEvents(context, options.exported);
        },
        {{"export Logon --file logon.jsonl", "The whole table, with a progress bar on a terminal."},
         {"export Logon --since 7d | gzip > week.jsonl.gz", "The last seven days, to another program."}});
    AddFilters(write, exported.query);
    write
        .add_option("--file", exported.file, "The file, which is replaced; - is standard output, as without")
        ->type_name("FILE");
    ImportOptions& import = parser.GetOptions().import;
    CLI::App& read = parser.AddCommand(
        kEventsGroup, "import",
        "Create one event for each line of JSON, as export writes them; each gets the time of its import",
        [](CommandContext& context, const Options& options) { return ImportEvents(context, options.import); },
        {{"import Logon logon.jsonl", "A line that cannot be taken is reported, the others go on."},
         {"import Logon logon.jsonl --from-line 5001", "Goes on where an import was stopped."}});
    read.add_option("MODEL", import.model, "The model's name")->required();
    read.add_option("FILE", import.file, "The file; - reads standard input")->required();
    read.add_option("--from-line", import.fromLine, "Begin with this line, counted from 1")
        ->check(CLI::Range(int64_t{1}, std::numeric_limits<int64_t>::max()))
        ->type_name("N");
    AddQuery(parser);
}
