#pragma once

#include <boost/property_tree/ptree.hpp>

#include <string>

namespace agent::spf::servicepublisher {

// The tree as compact JSON, the way Boost's JSON writer would put it on one line, but without
// its failure on nodes that carry both a value and children (their value is left out here): a
// leaf is a string, a node whose children all have empty keys is an array, any other node an
// object. The empty tree is "{}". Throws only std::bad_alloc.
std::string toCompactJson(const boost::property_tree::ptree& tree);

}  // namespace agent::spf::servicepublisher
