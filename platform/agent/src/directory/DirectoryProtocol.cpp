#include "directory/DirectoryProtocol.h"

namespace agent::directory::protocol {

using core::transport::Address;
using core::transport::Message;
using directoryinterfaces::ServiceInstanceInfo;

namespace {

// The smallest encoded entries, for WireReader::count: a uuid; a method (name length,
// address); a string pair.
constexpr std::size_t kUuidSize = 16;
constexpr std::size_t kMethodSize = 4 + 16;

void header(WireWriter& out, Kind kind) {
    out.u8(kVersion);
    out.u8(static_cast<std::uint8_t>(kind));
}

void writeVersion(WireWriter& out, const core::serviceutils::APIVersion& v) {
    out.u32(v.getMajor());
    out.u32(v.getMinor());
    out.u32(v.getPatch());
    out.u32(v.getBuild());
}

core::serviceutils::APIVersion readVersion(WireReader& in) {
    const auto major = in.u32();
    const auto minor = in.u32();
    const auto patch = in.u32();
    return core::serviceutils::APIVersion(major, minor, patch, in.u32());
}

void writeInstance(WireWriter& out, const ServiceInstanceInfo& instance) {
    out.string(instance.name);
    out.uuid(instance.instance);
    writeVersion(out, instance.version);
    out.stringMap(instance.metadata);
    out.u32(static_cast<std::uint32_t>(instance.methods.size()));
    for (const auto& [name, address] : instance.methods) {
        out.string(name);
        out.uuid(address.getUUID());
    }
    out.uuid(instance.node);
}

ServiceInstanceInfo readInstance(WireReader& in) {
    ServiceInstanceInfo instance;
    instance.name = in.string();
    instance.instance = in.uuid();
    instance.version = readVersion(in);
    instance.metadata = in.stringMap();
    for (auto n = in.count(kMethodSize); n > 0; --n) {
        auto name = in.string();
        instance.methods[std::move(name)] = Address(in.uuid());
    }
    instance.node = in.uuid();
    return instance;
}

void writeOptionalMap(WireWriter& out, const boost::optional<Metadata>& map) {
    out.u8(map ? 1 : 0);
    if (map) {
        out.stringMap(*map);
    }
}

boost::optional<Metadata> readOptionalMap(WireReader& in) {
    if (!in.flag()) {
        return boost::none;
    }
    return in.stringMap();
}

// Checks the version and returns the kind byte.
std::uint8_t open(WireReader& in) {
    const auto version = in.u8();
    if (version != kVersion) {
        throw DirectoryProtocolError("Directory message has version " + std::to_string(version) +
                                     "; this directory speaks version " + std::to_string(kVersion));
    }
    return in.u8();
}

[[noreturn]] void unknownKind(std::uint8_t kind) {
    throw DirectoryProtocolError("Directory message has unknown kind " + std::to_string(kind));
}

struct RequestWriter : boost::static_visitor<void> {
    WireWriter& out;
    explicit RequestWriter(WireWriter& o) : out(o) {}
    void operator()(const RegisterRequest& r) const {
        header(out, Kind::Register);
        writeInstance(out, r.instance);
    }
    void operator()(const DeregisterRequest& r) const {
        header(out, Kind::Deregister);
        out.uuid(r.instance);
    }
    void operator()(const QueryRequest& r) const {
        header(out, Kind::Query);
        out.string(r.pattern);
        writeOptionalMap(out, r.metadata);
    }
    void operator()(const LookupRequest& r) const {
        header(out, Kind::Lookup);
        out.uuid(r.instance);
        writeVersion(out, r.version);
    }
    void operator()(const SubscribeRequest& r) const {
        header(out, Kind::Subscribe);
        out.uuid(r.callback.getUUID());
        out.uuid(r.node);
        out.u8(r.retrospectively ? 1 : 0);
        out.u8(r.serviceName ? 1 : 0);
        if (r.serviceName) {
            out.string(*r.serviceName);
        }
        writeOptionalMap(out, r.metadata);
    }
    void operator()(const UnsubscribeRequest& r) const {
        header(out, Kind::Unsubscribe);
        out.uuid(r.subscription);
    }
};

struct ReplyWriter : boost::static_visitor<void> {
    WireWriter& out;
    explicit ReplyWriter(WireWriter& o) : out(o) {}
    void operator()(const DoneReply& r) const {
        header(out, Kind::Done);
        out.u8(r.changed ? 1 : 0);
    }
    void operator()(const UuidsReply& r) const {
        header(out, Kind::Uuids);
        out.u32(static_cast<std::uint32_t>(r.instances.size()));
        for (const auto& id : r.instances) {
            out.uuid(id);
        }
    }
    void operator()(const FoundReply& r) const {
        header(out, Kind::Found);
        out.u8(r.instance ? 1 : 0);
        if (r.instance) {
            writeInstance(out, *r.instance);
        }
    }
    void operator()(const SubscribedReply& r) const {
        header(out, Kind::Subscribed);
        out.uuid(r.subscription);
    }
};

}  // namespace

Message encode(const Request& request) {
    Message message;
    WireWriter out(message);
    boost::apply_visitor(RequestWriter(out), request);
    return message;
}

Message encode(const Reply& reply) {
    Message message;
    WireWriter out(message);
    boost::apply_visitor(ReplyWriter(out), reply);
    return message;
}

Message encode(const NotificationMessage& n) {
    Message message;
    WireWriter out(message);
    header(out, Kind::Notification);
    out.uuid(n.subscription);
    out.u64(n.sequence);
    const auto* started = boost::get<directoryinterfaces::ServiceStartedNotification>(&n.notification);
    out.u8(started != nullptr ? 1 : 0);
    if (started != nullptr) {
        out.string(started->serviceName);
        out.uuid(started->serviceInstance);
    } else {
        const auto& stopped = boost::get<directoryinterfaces::ServiceStoppedNotification>(n.notification);
        out.string(stopped.serviceName);
        out.uuid(stopped.serviceInstance);
    }
    return message;
}

Request decodeRequest(const Message& message) {
    WireReader in(message.data(), message.size());
    const auto kind = open(in);
    Request request;
    switch (static_cast<Kind>(kind)) {
    case Kind::Register:
        request = RegisterRequest{readInstance(in)};
        break;
    case Kind::Deregister:
        request = DeregisterRequest{in.uuid()};
        break;
    case Kind::Query: {
        QueryRequest query;
        query.pattern = in.string();
        query.metadata = readOptionalMap(in);
        request = std::move(query);
        break;
    }
    case Kind::Lookup: {
        LookupRequest lookup;
        lookup.instance = in.uuid();
        lookup.version = readVersion(in);
        request = lookup;
        break;
    }
    case Kind::Subscribe: {
        SubscribeRequest subscribe;
        subscribe.callback = Address(in.uuid());
        subscribe.node = in.uuid();
        subscribe.retrospectively = in.flag();
        if (in.flag()) {
            subscribe.serviceName = in.string();
        }
        subscribe.metadata = readOptionalMap(in);
        request = std::move(subscribe);
        break;
    }
    case Kind::Unsubscribe:
        request = UnsubscribeRequest{in.uuid()};
        break;
    default:
        unknownKind(kind);
    }
    in.expectEnd();
    return request;
}

Reply decodeReply(const Message& message) {
    WireReader in(message.data(), message.size());
    const auto kind = open(in);
    Reply reply;
    switch (static_cast<Kind>(kind)) {
    case Kind::Done:
        reply = DoneReply{in.flag()};
        break;
    case Kind::Uuids: {
        UuidsReply uuids;
        const auto n = in.count(kUuidSize);
        uuids.instances.reserve(n);
        for (auto i = n; i > 0; --i) {
            uuids.instances.push_back(in.uuid());
        }
        reply = std::move(uuids);
        break;
    }
    case Kind::Found: {
        FoundReply found;
        if (in.flag()) {
            found.instance = readInstance(in);
        }
        reply = std::move(found);
        break;
    }
    case Kind::Subscribed:
        reply = SubscribedReply{in.uuid()};
        break;
    default:
        unknownKind(kind);
    }
    in.expectEnd();
    return reply;
}

NotificationMessage decodeNotification(const Message& message) {
    WireReader in(message.data(), message.size());
    const auto kind = open(in);
    if (static_cast<Kind>(kind) != Kind::Notification) {
        unknownKind(kind);
    }
    NotificationMessage n;
    n.subscription = in.uuid();
    n.sequence = in.u64();
    const bool started = in.flag();
    auto name = in.string();
    const auto instance = in.uuid();
    if (started) {
        n.notification = directoryinterfaces::ServiceStartedNotification{std::move(name), instance};
    } else {
        n.notification = directoryinterfaces::ServiceStoppedNotification{std::move(name), instance};
    }
    in.expectEnd();
    return n;
}

}  // namespace agent::directory::protocol
