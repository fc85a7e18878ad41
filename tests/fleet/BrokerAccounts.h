#pragma once

#include <memory>
#include <string>
#include <vector>

/// What an account server hands out: an operator's word for its accounts, and files of credentials for the
/// users of one account. The texts are those of a NATS server in operator mode: claims as a JSON web token,
/// signed with Ed25519 by keys that are written in base 32 with their kind and a checksum.

/// A pair of keys of an operator, an account or a user.
class BrokerKey {
public:
    enum class Kind { kOperator, kAccount, kUser };

    explicit BrokerKey(Kind kind);

    [[nodiscard]] Kind GetKind() const { return kind_; }
    [[nodiscard]] std::string GetPublic() const;
    [[nodiscard]] std::string GetSeed() const;
    /// The signature of `text`, 64 bytes.
    [[nodiscard]] std::string Sign(const std::string& text) const;

private:
    Kind kind_;
    std::shared_ptr<void> key_;
};

/// An operator with an account for the fleet and the system's account, which a server with a stream store
/// needs.
class BrokerAccounts {
public:
    /// What a server's configuration says of them.
    [[nodiscard]] std::string GetConfiguration() const;

    /// A file of credentials for a new user of the fleet's account, who may do no more than this; without
    /// subjects anything.
    [[nodiscard]] std::string MakeCredentials(const std::string& name,
                                              const std::vector<std::string>& publish = {},
                                              const std::vector<std::string>& subscribe = {}) const;

private:
    BrokerKey operator_{BrokerKey::Kind::kOperator};
    BrokerKey system_{BrokerKey::Kind::kAccount};
    BrokerKey fleet_{BrokerKey::Kind::kAccount};
};
