#include "agent/spf/core/GenericPayload.h"

namespace agent::spf::core {

GenericPayload::GenericPayload(std::size_t emptySlots) : slots_(emptySlots) {}

GenericPayload::GenericPayload(const GenericPayload& other) {
    slots_.reserve(other.slots_.size());
    for (std::size_t i = 0; i < other.slots_.size(); ++i) {
        slots_.push_back(other.slots_[i] ? other.slots_[i]->clone(i) : nullptr);
    }
}

GenericPayload& GenericPayload::operator=(const GenericPayload& other) {
    if (this != &other) {
        GenericPayload copy(other);
        *this = std::move(copy);
    }
    return *this;
}

void GenericPayload::reset(std::size_t index) {
    checkIndex(index);
    slots_[index].reset();
}

void GenericPayload::append(GenericPayload&& other) {
    if (&other == this) {
        return;
    }
    slots_.reserve(slots_.size() + other.slots_.size());
    for (auto& slot : other.slots_) {
        slots_.push_back(std::move(slot));
    }
    other.slots_.clear();
}

GenericPayload GenericPayload::extract(std::size_t index) {
    checkIndex(index);
    GenericPayload single;
    single.slots_.push_back(std::move(slots_[index]));
    return single;
}

std::type_index GenericPayload::typeAt(std::size_t index) const {
    checkIndex(index);
    if (!slots_[index]) {
        throw std::runtime_error("GenericPayload empty at index " + std::to_string(index));
    }
    return slots_[index]->type();
}

bool GenericPayload::isPolymorphicAt(std::size_t index) const {
    checkIndex(index);
    if (!slots_[index]) {
        throw std::runtime_error("GenericPayload empty at index " + std::to_string(index));
    }
    return slots_[index]->polymorphic();
}

bool GenericPayload::isEmptyAt(std::size_t index) const {
    checkIndex(index);
    return !slots_[index];
}

void GenericPayload::applyFilter(const std::vector<bool>& shouldApplyFilter,
                                 const std::function<void(std::size_t, GenericPayload&)>& filter) {
    if (shouldApplyFilter.size() != slots_.size()) {
        throw std::runtime_error("Incorrect shouldApplyFilter argument - size doesn't match number of elements");
    }
    for (std::size_t i = 0; i < shouldApplyFilter.size(); ++i) {
        if (shouldApplyFilter[i]) {
            filter(i, *this);
        }
    }
}

void GenericPayload::checkIndex(std::size_t index) const {
    if (index >= slots_.size()) {
        throw std::logic_error("Invalid GenericPayload index");
    }
}

detail::PayloadSlot& GenericPayload::checkedSlot(std::size_t index, const std::type_info& requested) {
    checkIndex(index);
    detail::PayloadSlot* slot = slots_[index].get();
    if (!slot) {
        throw std::runtime_error("GenericPayload empty at index " + std::to_string(index));
    }
    if (slot->type() != std::type_index(requested)) {
        throwTypeMismatch(index, slot->type(), requested);
    }
    return *slot;
}

void GenericPayload::throwTypeMismatch(std::size_t index, std::type_index held, std::type_index requested) {
    throw std::runtime_error("GenericPayload holds another type at index " + std::to_string(index) + ": " +
                             typeName(held) + " requested as " + typeName(requested));
}

}  // namespace agent::spf::core
