#include "client/cli/CommandParser.h"

void AddModelCommands(CommandParser& parser) {
    parser.AddCommand(kModelsGroup, "models", "List the models",
                      [](CommandContext& context, const Options&) { return ListModels(context); },
                      {{"models --output json", "The same for a program."}});
    parser.AddModelCommand(
        kModelsGroup, "model", "Show one model with its parameters",
        [](CommandContext& context, const Options& options) { return ShowModel(context, options.model); },
        {{"model Logon", "What an event of this model holds."}});
    parser.AddModelCommand(
        kModelsGroup, "enable", "Let a model take events",
        [](CommandContext& context, const Options& options) { return EnableModel(context, options.model); },
        {{"enable Logon", "From now on events are stored."}});
    parser.AddModelCommand(
        kModelsGroup, "disable", "Drop a model's new events",
        [](CommandContext& context, const Options& options) { return DisableModel(context, options.model); },
        {{"disable Logon", "Events that come are dropped; those that are there stay."}});
    CLI::App& remove = parser.AddModelCommand(
        kModelsGroup, "delete", "Delete a model with all its events",
        [](CommandContext& context, const Options& options) {
            return DeleteModel(context, options.model, options.yes);
        },
        {{"delete Logon",
          "Asks first when the model has events; elsewhere than on a terminal it needs --yes."}});
    remove.add_flag("--yes,-y", parser.GetOptions().yes, "Do not ask, even where the model has events");
    parser.AddCommand(kModelsGroup, "reload", "Take in new model files, and say what became of each",
                      [](CommandContext& context, const Options&) { return ReloadModels(context); },
                      {{"reload", "After a definition file was copied into the models directory."}});
    CLI::App& check = parser.AddCommand(
        kModelsGroup, "check", "Show every fault of definition files, with line and column; needs no agent",
        [](CommandContext& context, const Options& options) {
            return CheckDefinitions(context, options.files);
        },
        {{"check Logon.xml LogonsByHour.xml", "Before they are copied into the models directory."}});
    check.add_option("FILE", parser.GetOptions().files, "The definition files")->required();
}
