#include <exception>
#include <iostream>

#include "fleet/collect/Collector.h"
#include "fleet/collect/database/Schema.h"
#include "fleet/service/StatusServer.h"
#include "fleet/service/StopSignal.h"

namespace {

int Fail(const std::string& reason) {
    std::cerr << "lumcollect: " << reason << '\n';
    return 1;
}

int SetUp(const CollectSettings& settings) {
    try {
        Database database;
        database.Open(settings.database, "");
        const int32_t taken = SetUpSchema(database);
        std::cout << "Database: " << taken << " steps taken, " << LastSchemaStep() << " in all\n";
    } catch (const SqlError& error) {
        return Fail("Database: " + std::string(error.what()));
    }
    Broker broker;
    std::string error;
    bool made = false;
    StreamState state;
    if (!broker.Connect(settings.broker, error) || !SetUpStream(broker, settings.stream, made, error) ||
        !ReadStreamState(broker, settings.stream.name, settings.stream.consumer, state, error)) {
        return Fail("Broker: " + error);
    }
    std::cout << "Stream " << settings.stream.name << ": " << (made ? "made" : "is there") << ", replicas "
              << state.replicas << '\n';
    return 0;
}

int RunCollector(const CollectSettings& settings) {
    const StopSignal signals;
    CollectState state;
    StatusServer server;
    std::string error;
    if (!server.Start(settings.listen,
                      {[&state] { return CollectHealth(state); }, [&state] { return CollectMetrics(state); }},
                      error)) {
        return Fail(error);
    }
    Collector(settings, state).Run();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CollectSettings settings;
        if (const std::optional<int> status = ReadCollectSettings(argc, argv, settings); status.has_value()) {
            return *status;
        }
        return settings.setUp ? SetUp(settings) : RunCollector(settings);
    } catch (const std::exception& error) {
        return Fail(error.what());
    }
}
