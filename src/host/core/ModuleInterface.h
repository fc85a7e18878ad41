#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/text/LumString.h"

/// What a module exports under the name "ModuleMain", and how the agent drives it.

/// The version of all that stands between the agent and its modules: this header, and the classes of the host
/// libraries as they lie in memory. It grows with every change after which a module has to be built anew.
inline constexpr uint32_t kLumModuleInterface = 1;

/// A module bears the version that it was built for in a note of its file (elf(5)), so that the agent can
/// read it before any code of the module runs. Whoever includes this header has it.
struct LumModuleNote {
    uint32_t nameLength;
    uint32_t versionLength;
    uint32_t type;
    char name[4];
    uint32_t version;
};
inline constexpr char kLumModuleNoteName[] = "LUM";
inline constexpr uint32_t kLumModuleNoteType = 1;
__attribute__((used, section(".note.lum"), aligned(4))) static const LumModuleNote kLumModuleNote = {
    sizeof(kLumModuleNoteName), sizeof(uint32_t), kLumModuleNoteType, "LUM", kLumModuleInterface};

/// The commands. A module answers 1 for done and 5 for a command that it does not know.
enum class LumModuleCommand : uint32_t {
    kRegister = 1,        ///< pointer: the module's LumAgentHandle; the module registers its actions
    kUnregister = 2,      ///< before the library is unloaded
    kInitialise = 3,      ///< after kRegister, before any action is let through
    kActivate = 4,        ///< start the module's threads
    kCleanup = 5,         ///< stop them
    kGetDescription = 6,  ///< pointer: a buffer of kLumModuleTextLength wide characters for the answer
    kGetVersion = 7,      ///< the same
    kAcknowledged = 9,    ///< answered with done; nothing is asked for. 8 is not a command
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
