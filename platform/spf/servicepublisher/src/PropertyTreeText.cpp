#include "PropertyTreeText.h"

#include <cstdio>

namespace agent::spf::servicepublisher {

namespace {

void appendQuoted(std::string& out, const std::string& text) {
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
                out += escaped;
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void appendNode(std::string& out, const boost::property_tree::ptree& node, bool isRoot) {
    if (node.empty()) {
        if (isRoot && node.data().empty()) {
            out += "{}";
        } else {
            appendQuoted(out, node.data());
        }
        return;
    }
    bool isArray = true;
    for (const auto& child : node) {
        isArray = isArray && child.first.empty();
    }
    out += isArray ? '[' : '{';
    bool first = true;
    for (const auto& child : node) {
        if (!first) {
            out += ',';
        }
        first = false;
        if (!isArray) {
            appendQuoted(out, child.first);
            out += ':';
        }
        appendNode(out, child.second, false);
    }
    out += isArray ? ']' : '}';
}

}  // namespace

std::string toCompactJson(const boost::property_tree::ptree& tree) {
    std::string out;
    appendNode(out, tree, true);
    return out;
}

}  // namespace agent::spf::servicepublisher
