#include "model/ModelElement.h"

const LumString& ModelElement_t::GetName() const {
    static const LumString kNone;
    return kNone;
}

PtrModelElementColl_t::~PtrModelElementColl_t() {
    map_.Clear();
}

bool PtrModelElementColl_t::Add(std::shared_ptr<ModelElement_t> element) {
    return element != nullptr && map_.SetIfAbsent(element->GetName(), std::move(element));
}

bool PtrModelElementColl_t::Replace(std::shared_ptr<ModelElement_t> element) {
    if (element == nullptr) {
        return false;
    }
    const LumString name = element->GetName();
    map_.Set(name, std::move(element));
    return true;
}

bool PtrModelElementColl_t::RemoveNamed(const LumString& name) {
    return map_.Remove(name).has_value();
}
