#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/text/LumString.h"

/// What a module exports under the name "ModuleMain", and how the agent drives it.

/// The commands. A module answers 1 for done and 5 for a command that it does not know.
enum class LumModuleCommand : uint32_t {
    kRegister = 1,        ///< pointer: the module's LumAgentHandle; the module registers its actions
    kUnregister = 2,      ///< before the library is unloaded
    kInitialise = 3,      ///< after kRegister, before any action is let through
    kActivate = 4,        ///< start the module's threads
    kCleanup = 5,         ///< stop them
    kGetDescription = 6,  ///< pointer: a buffer of kLumModuleTextLength wide characters for the answer
    kGetVersion = 7,      ///< the same
    kAcknowledged = 9,    ///< answered with done; nothing is asked for. 8 is no command
};

inline constexpr uint32_t kLumModuleDone = 1;
inline constexpr uint32_t kLumModuleUnknownCommand = 5;

/// Room for the answers to kGetDescription and kGetVersion, in wide characters, terminator included.
inline constexpr uint32_t kLumModuleTextLength = 512;

/// Answers kGetDescription or kGetVersion: copies `text`, cut to the room there is, into the buffer
/// `pointer`.
inline void LumModuleAnswer(const LumString& text, void* pointer) {
    const std::wstring_view wide(text.GetTCHAR());
    auto* const buffer = static_cast<wchar_t*>(pointer);
    const std::size_t length = std::min<std::size_t>(wide.size(), kLumModuleTextLength - 1);
    std::copy_n(wide.begin(), length, buffer);
    buffer[length] = L'\0';
}

inline constexpr char kLumModuleEntryPoint[] = "ModuleMain";

/// Of `word` only the low 16 bits carry meaning. Called on one thread at a time.
using LumModuleMain = uint32_t (*)(uint32_t command, uint32_t word, void* pointer);
