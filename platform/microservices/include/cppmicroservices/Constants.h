#ifndef CPPMICROSERVICES_CONSTANTS_H
#define CPPMICROSERVICES_CONSTANTS_H

#include "cppmicroservices/GlobalConfig.h"

#include <string>

namespace cppmicroservices::Constants
{
    // --- framework and bundle identity -------------------------------------
    US_Framework_EXPORT extern std::string const SYSTEM_BUNDLE_LOCATION;   ///< "System Bundle"
    US_Framework_EXPORT extern std::string const SYSTEM_BUNDLE_SYMBOLICNAME; ///< "system_bundle"

    // --- manifest headers (Bundle::GetHeaders) ------------------------------
    US_Framework_EXPORT extern std::string const BUNDLE_ACTIVATOR;        ///< "bundle.activator", bool
    US_Framework_EXPORT extern std::string const BUNDLE_CATEGORY;         ///< "bundle.category"
    US_Framework_EXPORT extern std::string const BUNDLE_COPYRIGHT;        ///< "bundle.copyright"
    US_Framework_EXPORT extern std::string const BUNDLE_DESCRIPTION;      ///< "bundle.description"
    US_Framework_EXPORT extern std::string const BUNDLE_MANIFESTVERSION;  ///< "bundle.manifest_version"
    US_Framework_EXPORT extern std::string const BUNDLE_NAME;             ///< "bundle.name"
    US_Framework_EXPORT extern std::string const BUNDLE_VENDOR;           ///< "bundle.vendor"
    US_Framework_EXPORT extern std::string const BUNDLE_VERSION;          ///< "bundle.version"
    US_Framework_EXPORT extern std::string const BUNDLE_DOCURL;           ///< "bundle.doc_url"
    US_Framework_EXPORT extern std::string const BUNDLE_CONTACTADDRESS;   ///< "bundle.contact_address"
    US_Framework_EXPORT extern std::string const BUNDLE_SYMBOLICNAME;     ///< "bundle.symbolic_name"
    US_Framework_EXPORT extern std::string const BUNDLE_ACTIVATIONPOLICY; ///< "bundle.activation_policy"
    US_Framework_EXPORT extern std::string const ACTIVATION_LAZY;         ///< "lazy"

    // --- framework configuration (FrameworkFactory::NewFramework) -----------
    US_Framework_EXPORT extern std::string const FRAMEWORK_VERSION;            ///< "org.cppmicroservices.framework.version"
    US_Framework_EXPORT extern std::string const FRAMEWORK_VENDOR;             ///< "org.cppmicroservices.framework.vendor"
    US_Framework_EXPORT extern std::string const FRAMEWORK_STORAGE;            ///< "org.cppmicroservices.framework.storage", string
    US_Framework_EXPORT extern std::string const FRAMEWORK_STORAGE_CLEAN;      ///< "org.cppmicroservices.framework.storage.clean"
    US_Framework_EXPORT extern std::string const FRAMEWORK_STORAGE_CLEAN_ONFIRSTINIT; ///< "onFirstInit"
    US_Framework_EXPORT extern std::string const FRAMEWORK_THREADING_SUPPORT;  ///< "org.cppmicroservices.framework.threading.support", read-only
    US_Framework_EXPORT extern std::string const FRAMEWORK_THREADING_SINGLE;   ///< "single"
    US_Framework_EXPORT extern std::string const FRAMEWORK_THREADING_MULTI;    ///< "multi"
    US_Framework_EXPORT extern std::string const FRAMEWORK_LOG;                ///< "org.cppmicroservices.framework.log", bool
    US_Framework_EXPORT extern std::string const FRAMEWORK_UUID;               ///< "org.cppmicroservices.framework.uuid"
    US_Framework_EXPORT extern std::string const FRAMEWORK_WORKING_DIR;        ///< "org.cppmicroservices.framework.working.dir"
    US_Framework_EXPORT extern std::string const FRAMEWORK_BUNDLE_VALIDATION_FUNC; ///< "org.cppmicroservices.framework.bundle.validation.func"
    US_Framework_EXPORT extern std::string const LIBRARY_LOAD_OPTIONS;         ///< "org.cppmicroservices.library.load.options", int dlopen flags

    // --- service properties -------------------------------------------------
    US_Framework_EXPORT extern std::string const OBJECTCLASS;         ///< "objectclass", std::vector<std::string>, set by the framework
    US_Framework_EXPORT extern std::string const SERVICE_ID;          ///< "service.id", long, set by the framework
    US_Framework_EXPORT extern std::string const SERVICE_PID;         ///< "service.pid"
    US_Framework_EXPORT extern std::string const SERVICE_RANKING;     ///< "service.ranking", int
    US_Framework_EXPORT extern std::string const SERVICE_VENDOR;      ///< "service.vendor"
    US_Framework_EXPORT extern std::string const SERVICE_DESCRIPTION; ///< "service.description"
    US_Framework_EXPORT extern std::string const SERVICE_SCOPE;       ///< "service.scope", set by the framework
    US_Framework_EXPORT extern std::string const SCOPE_SINGLETON;     ///< "singleton"
    US_Framework_EXPORT extern std::string const SCOPE_BUNDLE;        ///< "bundle"
    US_Framework_EXPORT extern std::string const SCOPE_PROTOTYPE;     ///< "prototype"
} // namespace cppmicroservices::Constants

#endif // CPPMICROSERVICES_CONSTANTS_H
