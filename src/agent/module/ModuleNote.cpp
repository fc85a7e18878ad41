#include "agent/module/ModuleNote.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include "host/core/ModuleInterface.h"
#include "host/file/FileDescriptor.h"

namespace {

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Note = ElfW(Nhdr);

/// No linker makes more of them, or larger ones.
constexpr std::size_t kMaxSegments = 64;
constexpr std::size_t kMaxNoteBytes = std::size_t{64} << 10U;
constexpr std::size_t kNoteAlignment = 4;

/// Reads `count` bytes at `offset`; false where the file has not as many.
bool ReadAt(int file, void* bytes, std::size_t count, uint64_t offset) {
    return ::pread(file, bytes, count, static_cast<off_t>(offset)) == static_cast<ssize_t>(count);
}

constexpr std::size_t Aligned(std::size_t length) {
    return (length + kNoteAlignment - 1) / kNoteAlignment * kNoteAlignment;
}

/// Walks the notes of one segment to the module's own.
bool FindVersion(std::string_view notes, uint32_t& version) {
    Note note;
    while (notes.size() >= sizeof(note)) {
        std::memcpy(&note, notes.data(), sizeof(note));
        const std::size_t nameLength = Aligned(note.n_namesz);
        const std::size_t textLength = Aligned(note.n_descsz);
        notes.remove_prefix(sizeof(note));
        if (nameLength > notes.size() || textLength > notes.size() - nameLength) {
            return false;
        }
        const std::string_view name = notes.substr(0, note.n_namesz);
        if (note.n_type == kLumModuleNoteType && note.n_descsz == sizeof(version) &&
            name == std::string_view(kLumModuleNoteName, sizeof(kLumModuleNoteName))) {
            std::memcpy(&version, notes.data() + nameLength, sizeof(version));
            return true;
        }
        notes.remove_prefix(nameLength + textLength);
    }
    return false;
}

}  // namespace

bool ReadModuleInterface(const LumString& path, uint32_t& version) {
    const FileDescriptor file(::open(path.GetString(), O_RDONLY | O_CLOEXEC));
    Header header;
    if (!file.IsOpen() || !ReadAt(file.Get(), &header, sizeof(header), 0) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_phentsize != sizeof(Segment)) {
        return false;
    }
    for (std::size_t i = 0; i < header.e_phnum && i < kMaxSegments; ++i) {
        Segment segment;
        if (!ReadAt(file.Get(), &segment, sizeof(segment), header.e_phoff + i * sizeof(segment))) {
            return false;
        }
        if (segment.p_type != PT_NOTE || segment.p_filesz > kMaxNoteBytes) {
            continue;
        }
        std::string notes(segment.p_filesz, '\0');
        if (ReadAt(file.Get(), notes.data(), notes.size(), segment.p_offset) && FindVersion(notes, version)) {
            return true;
        }
    }
    return false;
}
