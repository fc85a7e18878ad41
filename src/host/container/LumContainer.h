#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// The index that stands for a name's single value.
inline constexpr uint32_t kLumSingleValue = 0xFFFFFFFF;

/// How deep containers may be nested in what comes from outside (JSON, container files); the outermost one
/// is 1.
inline constexpr uint32_t kLumMaxContainerDepth = 32;

class LumContainerContent;

/// Gives one reference to a content back.
struct LumContainerRelease {
    void operator()(LumContainerContent* content) const noexcept;
};

/// A tree of named values. A name holds either one single value or a list of values at positions 0, 1, 2,
/// ...; a position of a list may be empty. A value is a text, a 32-bit integer (one kind: the signed and the
/// unsigned accessors read the same 32 bits, and it is written out with the sign of the one that set it), a
/// bool, a double or a container. Names are walked in the order in which they were first set.
///
/// A copy is deep: no change of one shows in the other. (Copies share what neither has changed, so making one
/// costs next to nothing.) A moved-from container is empty. An object belongs to one thread at a time;
/// several threads may read one that nobody changes, except with GetNextName, which moves the object's own
/// cursor.
///
/// Every operation takes an index: a position, or kLumSingleValue. Set with kLumSingleValue replaces whatever
/// the name holds by that one value; Set at a position makes the name a list (a single value it held becomes
/// position 0) and grows it to hold the position. Get with kLumSingleValue reads position 0. A getter answers
/// false, and leaves its output untouched, where the value is absent or of another kind.
class LUM_API LumContainer {
public:
    /// A list never grows beyond this many positions; a Set beyond them is refused.
    static constexpr uint32_t kMaxPositions = 1U << 24U;

    LumContainer() noexcept;
    LumContainer(const LumContainer& other) noexcept;
    LumContainer(LumContainer&& other) noexcept;
    LumContainer& operator=(const LumContainer& other) noexcept;
    LumContainer& operator=(LumContainer&& other) noexcept;
    ~LumContainer();

    /// Removes every name.
    void Clear();
    /// Removes `name` with all its values; nothing where there is none.
    void ClearName(const LumString& name);

    /// Walks the names: one per call from the first on, false after the last, and then from the first again.
    /// Any change to the container starts the walk anew.
    [[nodiscard]] bool GetNextName(LumString& name);
    /// Number of names.
    [[nodiscard]] uint32_t CountNames() const;
    /// Name number `index` in walking order; false, and `name` untouched, at or above CountNames.
    [[nodiscard]] bool GetNameAt(uint32_t index, LumString& name) const;
    [[nodiscard]] bool Contains(const LumString& name) const;
    /// Number of values the name holds, empty positions not counted; 0 where it is absent.
    [[nodiscard]] uint32_t CountValues(const LumString& name) const;
    /// Number of positions of the name's list, empty ones counted; 1 for a single value, 0 where it is
    /// absent.
    [[nodiscard]] uint32_t CountPositions(const LumString& name) const;
    /// True where the name holds a list, even of one value.
    [[nodiscard]] bool IsList(const LumString& name) const;

    [[nodiscard]] bool GetString(const LumString& name, LumString& value,
                                 uint32_t index = kLumSingleValue) const;
    [[nodiscard]] bool GetInt32(const LumString& name, int32_t& value,
                                uint32_t index = kLumSingleValue) const;
    [[nodiscard]] bool GetInt32(const LumString& name, uint32_t& value,
                                uint32_t index = kLumSingleValue) const;
    [[nodiscard]] bool GetBool(const LumString& name, bool& value, uint32_t index = kLumSingleValue) const;
    [[nodiscard]] bool GetDouble(const LumString& name, double& value,
                                 uint32_t index = kLumSingleValue) const;
    [[nodiscard]] bool GetContainer(const LumString& name, LumContainer& value,
                                    uint32_t index = kLumSingleValue) const;
    /// The text itself, valid until the container changes; null where there is none. Spares the copy.
    [[nodiscard]] const LumString* FindString(const LumString& name, uint32_t index = kLumSingleValue) const;

    /// False, and nothing changed, only at a position of kMaxPositions or above.
    bool SetString(const LumString& name, const LumString& value, uint32_t index = kLumSingleValue);
    bool SetInt32(const LumString& name, int32_t value, uint32_t index = kLumSingleValue);
    bool SetInt32(const LumString& name, uint32_t value, uint32_t index = kLumSingleValue);
    bool SetBool(const LumString& name, bool value, uint32_t index = kLumSingleValue);
    bool SetDouble(const LumString& name, double value, uint32_t index = kLumSingleValue);
    bool SetContainer(const LumString& name, const LumContainer& value, uint32_t index = kLumSingleValue);
    bool SetContainer(const LumString& name, LumContainer&& value, uint32_t index = kLumSingleValue);

    /// Same names in the same order with the same values at the same places; two doubles that are not numbers
    /// count as the same.
    [[nodiscard]] bool operator==(const LumContainer& other) const;

    /// Writes the container file (docs/file-formats.md) into a new file of the temporary directory, mode
    /// 0600, synced and closed, and returns its path. An empty path means that it could not be written; the
    /// reason is one error line of the host's logger, and no file is left.
    [[nodiscard]] LumString SaveToTempFile() const;

    /// Reads a container file. False, with what is wrong and where in `error` and the container unchanged,
    /// for a file that cannot be read, is over 64 MiB, is not a container, or is nested deeper than
    /// kLumMaxContainerDepth.
    [[nodiscard]] bool LoadFromFile(const LumString& path, LumString& error);

    /// The bytes of the container file: one CBOR item (RFC 8949) after the self-described tag 55799.
    [[nodiscard]] std::string ToCbor() const;
    /// The reverse of ToCbor; same failures as LoadFromFile, places given as byte offsets.
    [[nodiscard]] bool FromCbor(std::string_view bytes, LumString& error);

    /// The container as one line of JSON: text, true/false, integers without and doubles with a fraction or
    /// an exponent, lists as arrays with null for an empty position. A double that JSON cannot write
    /// (infinity, not a number) is null; text bytes that are not UTF-8 show as U+FFFD.
    [[nodiscard]] std::string ToJson() const;
    /// Takes a JSON object, or empty text for the empty container; null is an absent value, a number with a
    /// fraction or an exponent a double, any other number must lie in the signed or unsigned 32-bit range. Of
    /// a name that is given twice the last value counts. False, with what is wrong and where in `error` and
    /// the container unchanged, for anything else: arrays in arrays, a depth over kLumMaxContainerDepth, text
    /// that is not UTF-8.
    [[nodiscard]] bool FromJson(std::string_view json, LumString& error);

private:
    using ContentRef = std::unique_ptr<LumContainerContent, LumContainerRelease>;

    /// Makes the content this object's own, as every change must. Returns what it took the place of: names
    /// and values that the caller passed may lie in there.
    [[nodiscard]] ContentRef Own();
    template <class Value>
    bool Set(const LumString& name, uint32_t index, Value value);

    ContentRef content_;
    uint32_t walked_ = 0;
};
