#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

/// Hash of a text: Bob Jenkins' one-at-a-time hash, with each 8-bit character sign-extended to 32 bits before
/// it is added, in unsigned 32-bit arithmetic.
[[nodiscard]] constexpr uint32_t HashText(std::string_view text) {
    uint32_t h = 0;
    for (const char c : text) {
        h += static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
        h += h << 10U;
        h ^= h >> 6U;
    }
    h += h << 3U;
    h ^= h >> 11U;
    h += h << 15U;
    return h;
}

/// One place of a hash table: the head of a chain of entries.
template <class Value>
struct LumBucket {
    struct Node {
        std::string text;
        uint32_t key = 0;
        Value value;
        std::unique_ptr<Node> next;
    };

    LumBucket() = default;
    LumBucket(const LumBucket&) = delete;
    LumBucket& operator=(const LumBucket&) = delete;
    /// Takes the chain apart node by node: a long one would overflow the stack if each node destroyed the
    /// next.
    ~LumBucket() {
        while (head != nullptr) {
            head = std::move(head->next);
        }
    }

    /// Puts `node` before the others.
    void Push(std::unique_ptr<Node> node) {
        node->next = std::move(head);
        head = std::move(node);
    }
    /// Takes the first node out; null where there is none.
    std::unique_ptr<Node> Pop() {
        std::unique_ptr<Node> node = std::move(head);
        if (node != nullptr) {
            head = std::move(node->next);
        }
        return node;
    }

    std::unique_ptr<Node> head;
};

/// A hash table with chained entries under 32-bit keys. Entries come and never go. Only the key is compared:
/// two texts with one hash share an entry. Not locked: the owner sees to that.
template <class Value>
class LumHash {
public:
    /// `initialBuckets` is the number of buckets of the first insertion, `maximumLoad` the percentage of
    /// entries to buckets above which the table grows, `growth` by how many percent (0: never).
    LumHash(uint32_t initialBuckets, uint32_t maximumLoad, uint32_t growth)
        : initialBuckets_(initialBuckets), maximumLoad_(maximumLoad), growth_(growth) {}

    /// The value under `key`, owned by the table and there until the table goes; null where there is none.
    [[nodiscard]] Value* Find(uint32_t key) {
        if (bucketCount_ == 0) {
            return nullptr;
        }
        for (Node* node = buckets_[key % bucketCount_].head.get(); node != nullptr; node = node->next.get()) {
            if (node->key == key) {
                return &node->value;
            }
        }
        return nullptr;
    }

    /// Adds an entry in front of its chain; `text` is kept with it for whoever looks at the table. Null, and
    /// nothing changed, where there is no memory.
    Value* Insert(std::string_view text, uint32_t key, Value value) {
        try {
            auto node = std::make_unique<Node>(Node{std::string(text), key, std::move(value), nullptr});
            if (!MakeRoom()) {
                return nullptr;
            }
            Value* const inserted = &node->value;
            buckets_[key % bucketCount_].Push(std::move(node));
            ++count_;
            return inserted;
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    [[nodiscard]] uint32_t GetBucketCount() const { return bucketCount_; }
    [[nodiscard]] uint32_t GetCount() const { return count_; }

private:
    using Bucket = LumBucket<Value>;
    using Node = typename Bucket::Node;

    bool MakeRoom() {
        if (bucketCount_ == 0) {
            return Rehash(initialBuckets_);
        }
        const uint64_t load = (uint64_t{count_} + 1) * 100 / bucketCount_;
        if (growth_ == 0 || load <= maximumLoad_) {
            return true;
        }
        return Rehash(static_cast<uint32_t>(uint64_t{bucketCount_} * (100 + growth_) / 100));
    }

    bool Rehash(uint32_t bucketCount) {
        std::unique_ptr<Bucket[]> larger(new (std::nothrow) Bucket[bucketCount]);
        if (larger == nullptr) {
            return false;
        }
        for (uint32_t i = 0; i < bucketCount_; ++i) {
            while (std::unique_ptr<Node> node = buckets_[i].Pop()) {
                Bucket& bucket = larger[node->key % bucketCount];
                bucket.Push(std::move(node));
            }
        }
        buckets_ = std::move(larger);
        bucketCount_ = bucketCount;
        return true;
    }

    std::unique_ptr<Bucket[]> buckets_;
    uint32_t bucketCount_ = 0;
    uint32_t count_ = 0;
    const uint32_t initialBuckets_;
    const uint32_t maximumLoad_;
    const uint32_t growth_;
};
