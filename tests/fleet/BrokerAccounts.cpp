#include "fleet/BrokerAccounts.h"

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include <openssl/evp.h>

namespace {

using nlohmann::json;

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kSignatureBytes = 64;
constexpr unsigned kSeedPrefix = 18U << 3U;

/// The first byte of a public key, which makes its text begin with O, A or U.
unsigned PrefixOf(BrokerKey::Kind kind) {
    switch (kind) {
        case BrokerKey::Kind::kOperator:
            return 14U << 3U;
        case BrokerKey::Kind::kAccount:
            return 0U;
        case BrokerKey::Kind::kUser:
            break;
    }
    return 20U << 3U;
}

const char* WordOf(BrokerKey::Kind kind) {
    constexpr std::array<const char*, 3> words = {"operator", "account", "user"};
    return words.at(static_cast<std::size_t>(kind));
}

/// `bytes` as digits of `bitsPerDigit` bits each, the last one filled up with zeros.
std::string InDigits(std::string_view bytes, std::string_view digits, unsigned bitsPerDigit) {
    std::string text;
    unsigned held = 0;
    unsigned bits = 0;
    for (const char byte : bytes) {
        held = (held << 8U) | static_cast<uint8_t>(byte);
        for (bits += 8; bits >= bitsPerDigit; bits -= bitsPerDigit) {
            text += digits[(held >> (bits - bitsPerDigit)) & ((1U << bitsPerDigit) - 1)];
        }
    }
    if (bits > 0) {
        text += digits[(held << (bitsPerDigit - bits)) & ((1U << bitsPerDigit) - 1)];
    }
    return text;
}

/// As in RFC 4648, without padding.
std::string Base32(std::string_view bytes) {
    return InDigits(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567", 5);
}

/// As in RFC 4648, with the alphabet for addresses, without padding.
std::string Base64Url(std::string_view bytes) {
    return InDigits(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_", 6);
}

/// CRC-16/XMODEM.
uint16_t Checksum(std::string_view bytes) {
    unsigned crc = 0;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned>(static_cast<uint8_t>(byte)) << 8U;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000U) != 0 ? (crc << 1U) ^ 0x1021U : crc << 1U;
        }
    }
    return static_cast<uint16_t>(crc);
}

std::string WithChecksum(std::string bytes) {
    const uint16_t crc = Checksum(bytes);
    bytes += static_cast<char>(crc & 0xFFU);
    bytes += static_cast<char>(crc >> 8U);
    return Base32(bytes);
}

EVP_PKEY* KeyIn(const std::shared_ptr<void>& key) {
    return static_cast<EVP_PKEY*>(key.get());
}

/// The claims that `issuer` makes about `subject`.
std::string Token(const BrokerKey& issuer, const std::string& name, const BrokerKey& subject, json claims) {
    claims["type"] = WordOf(subject.GetKind());
    claims["version"] = 2;
    const json body = {{"iat", 1'700'000'000}, {"iss", issuer.GetPublic()}, {"jti", name}, {"name", name},
                       {"nats", claims},       {"sub", subject.GetPublic()}};
    const std::string text =
        Base64Url(R"({"typ":"JWT","alg":"ed25519-nkey"})") + "." + Base64Url(body.dump());
    return text + "." + Base64Url(issuer.Sign(text));
}

/// No bounds but those that the server has itself.
json Unlimited(std::initializer_list<const char*> names) {
    json limits;
    for (const char* const name : names) {
        limits[name] = -1;
    }
    return limits;
}

std::string AccountToken(const BrokerKey& issuer, const std::string& name, const BrokerKey& account,
                         bool stores) {
    json limits = Unlimited({"subs", "data", "payload", "imports", "exports", "conn", "leaf"});
    limits["wildcards"] = true;
    if (stores) {
        limits.update(Unlimited({"mem_storage", "disk_storage", "streams", "consumer"}));
    }
    return Token(issuer, name, account, {{"limits", limits}});
}

}  // namespace

BrokerKey::BrokerKey(Kind kind)
    : kind_(kind), key_(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), [](void* key) {
          EVP_PKEY_free(static_cast<EVP_PKEY*>(key));
      }) {
    if (key_ == nullptr) {
        throw std::runtime_error("no key could be made");
    }
}

std::string BrokerKey::GetPublic() const {
    std::string bytes(kKeyBytes, '\0');
    std::size_t size = bytes.size();
    EVP_PKEY_get_raw_public_key(KeyIn(key_), reinterpret_cast<unsigned char*>(bytes.data()), &size);
    return WithChecksum(static_cast<char>(PrefixOf(kind_)) + bytes);
}

std::string BrokerKey::GetSeed() const {
    std::string bytes(kKeyBytes, '\0');
    std::size_t size = bytes.size();
    EVP_PKEY_get_raw_private_key(KeyIn(key_), reinterpret_cast<unsigned char*>(bytes.data()), &size);
    const unsigned prefix = PrefixOf(kind_);
    return WithChecksum(std::string{static_cast<char>(kSeedPrefix | (prefix >> 5U)),
                                    static_cast<char>((prefix & 31U) << 3U)} +
                        bytes);
}

std::string BrokerKey::Sign(const std::string& text) const {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::string signature(kSignatureBytes, '\0');
    std::size_t size = signature.size();
    if (EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, KeyIn(key_)) != 1 ||
        EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                       reinterpret_cast<const unsigned char*>(text.data()), text.size()) != 1) {
        throw std::runtime_error("a text could not be signed");
    }
    return signature;
}

std::string BrokerAccounts::GetConfiguration() const {
    return "operator: " + Token(operator_, "Operator", operator_, json::object()) +
           "\nsystem_account: " + system_.GetPublic() + "\nresolver: MEMORY\nresolver_preload: {\n  " +
           system_.GetPublic() + ": " + AccountToken(operator_, "System", system_, false) + "\n  " +
           fleet_.GetPublic() + ": " + AccountToken(operator_, "Fleet", fleet_, true) + "\n}\n";
}

std::string BrokerAccounts::MakeCredentials(const std::string& name, const std::vector<std::string>& publish,
                                            const std::vector<std::string>& subscribe) const {
    const BrokerKey user(BrokerKey::Kind::kUser);
    json claims = Unlimited({"subs", "data", "payload"});
    const auto allow = [](const std::vector<std::string>& subjects) {
        return subjects.empty() ? json::object() : json{{"allow", subjects}};
    };
    claims["pub"] = allow(publish);
    claims["sub"] = allow(subscribe);
    return "-----BEGIN NATS USER JWT-----\n" + Token(fleet_, name, user, claims) +
           "\n------END NATS USER JWT------\n\n-----BEGIN USER NKEY SEED-----\n" + user.GetSeed() +
           "\n------END USER NKEY SEED------\n";
}
