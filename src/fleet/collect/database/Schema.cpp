#include "fleet/collect/database/Schema.h"

#include <array>
#include <string>

namespace {

constexpr const char* kFoundation = R"(
DO $$ BEGIN
    CREATE ROLE lum_writer NOLOGIN;
EXCEPTION WHEN duplicate_object THEN NULL;
END $$;
DO $$ BEGIN
    CREATE ROLE lum_reader NOLOGIN;
EXCEPTION WHEN duplicate_object THEN NULL;
END $$;
DO $$ BEGIN
    IF NOT pg_has_role(current_user, 'lum_writer', 'MEMBER') THEN
        EXECUTE format('GRANT lum_writer TO %I', current_user);
    END IF;
    IF NOT EXISTS (SELECT FROM pg_namespace WHERE nspname = 'lum') THEN
        CREATE SCHEMA lum AUTHORIZATION lum_writer;
    END IF;
    IF NOT EXISTS (SELECT FROM pg_namespace WHERE nspname = 'lum_month') THEN
        CREATE SCHEMA lum_month AUTHORIZATION lum_writer;
    END IF;
END $$;
SET LOCAL ROLE lum_writer;
GRANT USAGE ON SCHEMA lum, lum_month TO lum_reader;
ALTER DEFAULT PRIVILEGES IN SCHEMA lum GRANT SELECT ON TABLES TO lum_reader;
ALTER DEFAULT PRIVILEGES IN SCHEMA lum_month GRANT SELECT ON TABLES TO lum_reader;
CREATE TABLE IF NOT EXISTS lum.schema_step (
    number integer PRIMARY KEY,
    title text NOT NULL,
    taken_at timestamptz NOT NULL DEFAULT now()
);
)";

struct Step {
    const char* title;
    const char* statements;
};

/// Step n stands at position n - 1. A step that was released is never changed; what is wrong with it is put
/// right by another.
constexpr std::array<Step, 2> kSteps{{
    {"Batches, devices, models, alerts and what was rejected", R"(
CREATE TABLE lum.batch (
    id bigint GENERATED ALWAYS AS IDENTITY UNIQUE,
    device text COLLATE "C" NOT NULL,
    digest bytea NOT NULL,
    label text NOT NULL,
    name text NOT NULL,
    number bigint,
    received_at timestamptz,
    stored_at timestamptz NOT NULL DEFAULT now(),
    bytes integer NOT NULL,
    events integer NOT NULL,
    model text,
    checksum text,
    PRIMARY KEY (device, digest)
);
CREATE INDEX ON lum.batch USING brin (stored_at);
CREATE TABLE lum.device (
    device text COLLATE "C" PRIMARY KEY,
    first_contact timestamptz NOT NULL DEFAULT now(),
    last_contact timestamptz NOT NULL DEFAULT now(),
    batches bigint NOT NULL DEFAULT 0,
    events bigint NOT NULL DEFAULT 0,
    rejected bigint NOT NULL DEFAULT 0,
    lowest_number bigint,
    highest_number bigint,
    missing int8multirange NOT NULL DEFAULT '{}'
) WITH (fillfactor = 70);
CREATE TABLE lum.model (
    model text PRIMARY KEY,
    table_name text NOT NULL UNIQUE,
    view_name text NOT NULL UNIQUE,
    introduced_by text NOT NULL,
    introduced_at timestamptz NOT NULL DEFAULT now()
);
CREATE TABLE lum.model_column (
    model text NOT NULL REFERENCES lum.model,
    parameter text NOT NULL,
    type text NOT NULL,
    column_name text NOT NULL,
    introduced_by text NOT NULL,
    introduced_at timestamptz NOT NULL DEFAULT now(),
    position integer GENERATED ALWAYS AS IDENTITY,
    PRIMARY KEY (model, parameter, type),
    UNIQUE (model, column_name)
);
CREATE TABLE lum.alert (
    event_time timestamptz NOT NULL,
    batch bigint NOT NULL,
    device text COLLATE "C" NOT NULL,
    event_gmt_offset integer,
    description text,
    status text,
    type text,
    content jsonb NOT NULL
);
CREATE INDEX ON lum.alert (event_time);
CREATE TABLE lum.rejected (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    device text COLLATE "C" NOT NULL,
    digest bytea NOT NULL,
    subject text NOT NULL,
    label text NOT NULL,
    name text NOT NULL,
    reason text NOT NULL,
    bytes integer NOT NULL,
    content bytea NOT NULL,
    rejected_at timestamptz NOT NULL DEFAULT now(),
    UNIQUE (device, digest)
);
CREATE TABLE lum.progress (
    collector text PRIMARY KEY,
    stream_made timestamptz NOT NULL,
    sequence bigint NOT NULL,
    at timestamptz NOT NULL DEFAULT now()
) WITH (fillfactor = 50);
)"},
    {"What devices have sent and the database has not", R"(
CREATE VIEW lum.gap AS
    SELECT device, lower(part) AS first_missing, upper(part) - 1 AS last_missing
    FROM lum.device, unnest(missing) AS part;
)"},
}};

/// False where the database has had the step.
bool TakeStep(Database& database, int32_t number) {
    Transaction transaction(database);
    database.RunScript(kLockLayout);
    if (!database.Run("SELECT 1 FROM lum.schema_step WHERE number = $1", {std::to_string(number)}).empty()) {
        return false;
    }
    const Step& step = kSteps[static_cast<std::size_t>(number - 1)];
    database.RunScript("SET LOCAL ROLE lum_writer");
    // A collector's statement is waited for; who comes after must not be held up for long by that.
    database.RunScript("SET LOCAL lock_timeout = '20s'");
    database.RunScript(step.statements);
    database.Run("INSERT INTO lum.schema_step (number, title) VALUES ($1, $2)",
                 {std::to_string(number), step.title});
    transaction.Commit();
    return true;
}

}  // namespace

int32_t LastSchemaStep() {
    return static_cast<int32_t>(kSteps.size());
}

int32_t SetUpSchema(Database& database) {
    {
        Transaction transaction(database);
        database.RunScript(kLockLayout);
        database.RunScript(kFoundation);
        transaction.Commit();
    }
    int32_t taken = 0;
    for (int32_t number = 1; number <= LastSchemaStep(); ++number) {
        try {
            taken += TakeStep(database, number) ? 1 : 0;
        } catch (const SqlError& error) {
            throw SqlError(error.GetKind(), "Step " + std::to_string(number) + ": " + error.what());
        }
    }
    return taken;
}

void CheckSchema(Database& database) {
    const std::string advice = "; run lumcollect --setup";
    std::string last;
    try {
        last = database.Run("SELECT max(number) FROM lum.schema_step").at(0).at(0);
    } catch (const SqlError& error) {
        throw SqlError(error.GetKind(),
                       error.what() + (error.GetKind() == SqlError::Kind::kLayout ? advice : ""));
    }
    if (last.empty() || std::stoi(last) < LastSchemaStep()) {
        throw SqlError(SqlError::Kind::kServer, "The database has had " + (last.empty() ? "none" : last) +
                                                    " of " + std::to_string(LastSchemaStep()) + " steps" +
                                                    advice);
    }
}
