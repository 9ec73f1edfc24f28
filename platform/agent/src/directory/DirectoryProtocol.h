#pragma once

// The directory's requests and replies on the wire. Every message starts with a version
// byte (kVersion) and a kind byte; integers are big-endian, strings and maps carry a
// 32-bit length or count, uuids are 16 raw bytes, optional values a 0/1 flag byte first.
// A decoder accepts exactly one message of the expected family and nothing after it,
// and throws DirectoryProtocolError (fixed texts, see WireCodec.h and below) otherwise.

#include "agent/core/serviceutils/APIVersion.h"
#include "agent/core/transport/Address.h"
#include "agent/core/transport/Message.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "agent/directoryinterfaces/ServiceNotification.h"
#include "directory/WireCodec.h"

#include <boost/optional.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/variant.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace agent::directory::protocol {

constexpr std::uint8_t kVersion = 1;

using Metadata = std::map<std::string, std::string>;

enum class Kind : std::uint8_t {
    Register = 1,
    Deregister = 2,
    Query = 3,
    Lookup = 4,
    Subscribe = 5,
    Unsubscribe = 6,
    Notification = 7,  // directory → subscriber
    Done = 64,
    Uuids = 65,
    Found = 66,
    Subscribed = 67,
};

struct RegisterRequest {
    directoryinterfaces::ServiceInstanceInfo instance;
};
struct DeregisterRequest {
    boost::uuids::uuid instance{};
};
// A name-pattern query; with metadata, every pair must match too.
struct QueryRequest {
    std::string pattern;
    boost::optional<Metadata> metadata;
};
struct LookupRequest {
    boost::uuids::uuid instance{};
    core::serviceutils::APIVersion version;
};
// Notifications go to `callback` as Notification requests.
struct SubscribeRequest {
    core::transport::Address callback;
    boost::uuids::uuid node{};
    bool retrospectively = false;
    boost::optional<std::string> serviceName;
    boost::optional<Metadata> metadata;
};
struct UnsubscribeRequest {
    boost::uuids::uuid subscription{};
};
using Request = boost::variant<RegisterRequest, DeregisterRequest, QueryRequest, LookupRequest, SubscribeRequest,
                               UnsubscribeRequest>;

// Register, Deregister and Unsubscribe: whether anything changed.
struct DoneReply {
    bool changed = false;
};
struct UuidsReply {
    std::vector<boost::uuids::uuid> instances;
};
struct FoundReply {
    boost::optional<directoryinterfaces::ServiceInstanceInfo> instance;
};
struct SubscribedReply {
    boost::uuids::uuid subscription{};
};
using Reply = boost::variant<DoneReply, UuidsReply, FoundReply, SubscribedReply>;

// `sequence` counts one subscription's notifications from 1.
struct NotificationMessage {
    boost::uuids::uuid subscription{};
    std::uint64_t sequence = 0;
    directoryinterfaces::ServiceNotification notification;
};

core::transport::Message encode(const Request& request);
core::transport::Message encode(const Reply& reply);
core::transport::Message encode(const NotificationMessage& notification);

// Each throws DirectoryProtocolError: besides the WireCodec texts,
//   "Directory message has version N; this directory speaks version 1"
//   "Directory message has unknown kind N"   (also a reply kind where a request belongs)
Request decodeRequest(const core::transport::Message& message);
Reply decodeReply(const core::transport::Message& message);
NotificationMessage decodeNotification(const core::transport::Message& message);

}  // namespace agent::directory::protocol
