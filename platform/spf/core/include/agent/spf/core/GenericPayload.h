#pragma once

#include "agent/spf/core/TypeName.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::spf::core {

namespace detail {

// One occupied slot of a GenericPayload. Private to the payload; not part of the API.
class PayloadSlot {
public:
    virtual ~PayloadSlot() = default;
    virtual std::type_index type() const noexcept = 0;
    virtual bool polymorphic() const noexcept { return false; }
    // Throws std::runtime_error for a value whose type cannot be copied.
    virtual std::unique_ptr<PayloadSlot> clone(std::size_t index) const = 0;
    virtual void* address() noexcept = 0;
};

template <class T>
class ValueSlot final : public PayloadSlot {
public:
    template <class U>
    explicit ValueSlot(U&& v) : value(std::forward<U>(v)) {}
    std::type_index type() const noexcept override { return typeid(T); }
    std::unique_ptr<PayloadSlot> clone(std::size_t index) const override {
        if constexpr (std::is_copy_constructible_v<T>) {
            return std::make_unique<ValueSlot<T>>(value);
        } else {
            throw std::runtime_error("GenericPayload value cannot be copied at index " + std::to_string(index));
        }
    }
    void* address() noexcept override { return &value; }

    T value;
};

// A value held through a pointer to its base class: its dynamic type is unknown to the
// payload, so it cannot be moved out by value (it would be sliced). Copies share the object.
template <class Base>
class PolymorphicSlot final : public PayloadSlot {
public:
    explicit PolymorphicSlot(std::shared_ptr<Base> p) : pointer(std::move(p)) {}
    std::type_index type() const noexcept override { return typeid(Base); }
    bool polymorphic() const noexcept override { return true; }
    std::unique_ptr<PayloadSlot> clone(std::size_t) const override {
        return std::make_unique<PolymorphicSlot<Base>>(pointer);
    }
    void* address() noexcept override { return pointer.get(); }

    std::shared_ptr<Base> pointer;
};

// String literals and char pointers are stored as std::string.
template <class T>
using StoredType = std::conditional_t<std::is_same_v<std::decay_t<T>, const char*> ||
                                          std::is_same_v<std::decay_t<T>, char*>,
                                      std::string, std::decay_t<T>>;

}  // namespace detail

// An ordered sequence of typed slots: the arguments of a call or its result. Each slot is
// empty or holds one value of any type, either by value or "polymorphically" (a
// std::shared_ptr<Base> whose object is known only by its base class Base).
//
// A value type: copyable (a value whose type cannot be copied makes the copy throw
// std::runtime_error; polymorphic slots share their object between copies) and movable.
// Not synchronised, like std::vector: one thread at a time, or const access only.
//
// Failures (fixed texts):
// - an index outside the payload: std::logic_error "Invalid GenericPayload index";
// - reading an empty slot: std::runtime_error "GenericPayload empty at index " + index;
// - reading a slot as another type: std::runtime_error
//   "GenericPayload holds another type at index " + index + ": " + held type + " requested as " + requested;
// - moving a polymorphic value out (take, and so every future): std::runtime_error
//   "Polymorphic types are not supported with futures";
// - a filter mask of the wrong length: std::runtime_error
//   "Incorrect shouldApplyFilter argument - size doesn't match number of elements".
class GenericPayload {
public:
    GenericPayload() = default;
    // A payload of `emptySlots` empty slots, to be filled with set().
    explicit GenericPayload(std::size_t emptySlots);
    GenericPayload(const GenericPayload& other);
    GenericPayload& operator=(const GenericPayload& other);
    GenericPayload(GenericPayload&&) noexcept = default;
    GenericPayload& operator=(GenericPayload&&) noexcept = default;
    ~GenericPayload() = default;

    // A payload of the given values in order; string literals become std::string.
    template <class... T>
    static GenericPayload make(T&&... values) {
        GenericPayload payload;
        payload.slots_.reserve(sizeof...(T));
        (payload.push_back(std::forward<T>(values)), ...);
        return payload;
    }

    std::size_t size() const noexcept { return slots_.size(); }
    bool empty() const noexcept { return slots_.empty(); }

    // Appends a value (a string literal or char pointer is stored as std::string).
    template <class T>
    void push_back(T value) {
        using Stored = detail::StoredType<T>;
        slots_.push_back(std::make_unique<detail::ValueSlot<Stored>>(Stored(std::move(value))));
    }
    // Appends a value held through its base class; null appends an empty slot.
    template <class Base>
    void pushPolymorphic(std::shared_ptr<Base> value) {
        slots_.push_back(value ? std::make_unique<detail::PolymorphicSlot<Base>>(std::move(value)) : nullptr);
    }
    void pushEmpty() { slots_.push_back(nullptr); }

    // Replaces the slot's content (or fills an empty slot). Throws the index failure.
    template <class T>
    void set(std::size_t index, T value) {
        checkIndex(index);
        using Stored = detail::StoredType<T>;
        slots_[index] = std::make_unique<detail::ValueSlot<Stored>>(Stored(std::move(value)));
    }
    template <class Base>
    void setPolymorphic(std::size_t index, std::shared_ptr<Base> value) {
        checkIndex(index);
        slots_[index] = value ? std::make_unique<detail::PolymorphicSlot<Base>>(std::move(value)) : nullptr;
    }
    // Empties the slot. Throws the index failure.
    void reset(std::size_t index);

    // Moves every slot of `other` to the end of this payload, in order.
    void append(GenericPayload&& other);
    // Moves the slot out into a payload of its own (an empty slot stays empty) and leaves
    // the slot here empty: how single values travel to and from serialisers. Throws the
    // index failure.
    GenericPayload extract(std::size_t index);

    // The value in the slot, which must hold exactly T (for a polymorphic slot: T = Base).
    // The reference is valid until the slot is changed or the payload destroyed.
    template <class T>
    T& get(std::size_t index) {
        return *static_cast<T*>(checkedSlot(index, typeid(T)).address());
    }
    template <class T>
    const T& get(std::size_t index) const {
        return *static_cast<const T*>(const_cast<GenericPayload*>(this)->checkedSlot(index, typeid(T)).address());
    }
    // The shared object of a polymorphic slot holding Base (a by-value slot is refused as
    // holding another type).
    template <class Base>
    std::shared_ptr<Base> getPolymorphic(std::size_t index) const {
        detail::PayloadSlot& slot = const_cast<GenericPayload*>(this)->checkedSlot(index, typeid(Base));
        if (!slot.polymorphic()) {
            throwTypeMismatch(index, slot.type(), typeid(std::shared_ptr<Base>));
        }
        return static_cast<detail::PolymorphicSlot<Base>&>(slot).pointer;
    }
    // Moves the value out and leaves the slot empty: how a result reaches a future.
    // A polymorphic slot fails with "Polymorphic types are not supported with futures".
    template <class T>
    T take(std::size_t index) {
        detail::PayloadSlot& slot = checkedSlot(index, typeid(T));
        if (slot.polymorphic()) {
            throw std::runtime_error("Polymorphic types are not supported with futures");
        }
        T value = std::move(static_cast<detail::ValueSlot<T>&>(slot).value);
        slots_[index].reset();
        return value;
    }

    // The type held in the slot (for a polymorphic slot: its Base). Throws the index and
    // empty-slot failures.
    std::type_index typeAt(std::size_t index) const;
    // True for a slot holding its value polymorphically. Throws the index and empty-slot failures.
    bool isPolymorphicAt(std::size_t index) const;
    // Throws the index failure.
    bool isEmptyAt(std::size_t index) const;
    // True when the slot holds exactly T. Never throws for an index inside the payload.
    template <class T>
    bool holds(std::size_t index) const {
        checkIndex(index);
        return slots_[index] && slots_[index]->type() == std::type_index(typeid(T));
    }

    // The filter mask: calls filter(index, *this) for every index whose entry in
    // shouldApplyFilter is true, in index order, so that the filter can inspect or replace
    // those slots (say, every exported callback among the arguments). The mask must have one
    // entry per slot. Exceptions from the filter propagate; slots already filtered stay changed.
    void applyFilter(const std::vector<bool>& shouldApplyFilter,
                     const std::function<void(std::size_t index, GenericPayload& payload)>& filter);

private:
    void checkIndex(std::size_t index) const;
    // The occupied slot at index, which must hold `requested`; throws the three read failures.
    detail::PayloadSlot& checkedSlot(std::size_t index, const std::type_info& requested);
    [[noreturn]] static void throwTypeMismatch(std::size_t index, std::type_index held, std::type_index requested);

    std::vector<std::unique_ptr<detail::PayloadSlot>> slots_;  // null = empty slot
};

}  // namespace agent::spf::core
