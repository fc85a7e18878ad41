#pragma once

#include <cstdint>
#include <vector>

#include "host/container/internal/LumContainerContent.h"

/// Tells `sink` all of a container in order, without recursion, so that no nesting is too deep:
/// BeginContainer(number of names), EndContainer(), Name(text), BeginList(number of positions), EndList(),
/// and Value(value) or Values(span of values) for all but containers. `root` null is the empty container.
template <class Sink>
class LumContainerWalk {
public:
    explicit LumContainerWalk(Sink& sink) : sink_(sink) {}

    void Run(const LumContainerContent* root) {
        Enter(root);
        while (!open_.empty()) {
            const Place place = open_.back();
            if (place.content == nullptr || place.entry == place.content->Count()) {
                sink_.EndContainer();
                open_.pop_back();
            } else {
                TellEntry(place.content->Entry(place.entry), place.position);
            }
        }
    }

private:
    /// What is to be told next of a container.
    struct Place {
        const LumContainerContent* content;
        uint32_t entry;
        uint32_t position;
    };

    void Enter(const LumContainerContent* content) {
        sink_.BeginContainer(content != nullptr ? content->Count() : 0);
        open_.push_back({content, 0, 0});
    }

    void TellEntry(const LumContainerEntry& entry, uint32_t position) {
        if (position == 0) {
            sink_.Name(entry.Name());
            if (entry.IsList()) {
                sink_.BeginList(entry.Count());
            }
        }
        if (!entry.MayNest()) {
            sink_.Value(entry.At(0));
            sink_.Values(entry.Rest());
            position = entry.Count();
        }
        for (; position < entry.Count(); ++position) {
            const LumContainerValue& value = entry.At(position);
            if (const auto* container = std::get_if<LumContentRef>(&value)) {
                open_.back().position = position + 1;
                Enter(container->get());
                return;
            }
            sink_.Value(value);
        }
        if (entry.IsList()) {
            sink_.EndList();
        }
        ++open_.back().entry;
        open_.back().position = 0;
    }

    Sink& sink_;
    std::vector<Place> open_;
};
