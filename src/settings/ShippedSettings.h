#pragma once

#include "host/text/LumString.h"

/// Brings what a release ships in the directory `from` into the configuration directory `to`. An ini file
/// that is missing there is copied, with mode 0600. In one that is there, each statement of the sections
/// SqlRun, SqlRunOnce and SqlUpgrade gets the shipped text of the same name, and what is missing is added;
/// settings, comments and statements of the site's own stay as they are. False where a directory or file
/// could not be read or written: `error` names the first of them, and the other files are done all the same.
[[nodiscard]] bool BringSettings(const LumString& from, const LumString& to, LumString& error);
