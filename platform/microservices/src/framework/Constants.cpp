#include "cppmicroservices/Constants.h"

namespace cppmicroservices::Constants
{
    std::string const SYSTEM_BUNDLE_LOCATION = "System Bundle";
    std::string const SYSTEM_BUNDLE_SYMBOLICNAME = "system_bundle";

    std::string const BUNDLE_ACTIVATOR = "bundle.activator";
    std::string const BUNDLE_CATEGORY = "bundle.category";
    std::string const BUNDLE_COPYRIGHT = "bundle.copyright";
    std::string const BUNDLE_DESCRIPTION = "bundle.description";
    std::string const BUNDLE_MANIFESTVERSION = "bundle.manifest_version";
    std::string const BUNDLE_NAME = "bundle.name";
    std::string const BUNDLE_VENDOR = "bundle.vendor";
    std::string const BUNDLE_VERSION = "bundle.version";
    std::string const BUNDLE_DOCURL = "bundle.doc_url";
    std::string const BUNDLE_CONTACTADDRESS = "bundle.contact_address";
    std::string const BUNDLE_SYMBOLICNAME = "bundle.symbolic_name";
    std::string const BUNDLE_ACTIVATIONPOLICY = "bundle.activation_policy";
    std::string const ACTIVATION_LAZY = "lazy";

    std::string const FRAMEWORK_VERSION = "org.cppmicroservices.framework.version";
    std::string const FRAMEWORK_VENDOR = "org.cppmicroservices.framework.vendor";
    std::string const FRAMEWORK_STORAGE = "org.cppmicroservices.framework.storage";
    std::string const FRAMEWORK_STORAGE_CLEAN = "org.cppmicroservices.framework.storage.clean";
    std::string const FRAMEWORK_STORAGE_CLEAN_ONFIRSTINIT = "onFirstInit";
    std::string const FRAMEWORK_THREADING_SUPPORT = "org.cppmicroservices.framework.threading.support";
    std::string const FRAMEWORK_THREADING_SINGLE = "single";
    std::string const FRAMEWORK_THREADING_MULTI = "multi";
    std::string const FRAMEWORK_LOG = "org.cppmicroservices.framework.log";
    std::string const FRAMEWORK_UUID = "org.cppmicroservices.framework.uuid";
    std::string const FRAMEWORK_WORKING_DIR = "org.cppmicroservices.framework.working.dir";
    std::string const FRAMEWORK_BUNDLE_VALIDATION_FUNC = "org.cppmicroservices.framework.bundle.validation.func";
    std::string const LIBRARY_LOAD_OPTIONS = "org.cppmicroservices.library.load.options";

    std::string const OBJECTCLASS = "objectclass";
    std::string const SERVICE_ID = "service.id";
    std::string const SERVICE_PID = "service.pid";
    std::string const SERVICE_RANKING = "service.ranking";
    std::string const SERVICE_VENDOR = "service.vendor";
    std::string const SERVICE_DESCRIPTION = "service.description";
    std::string const SERVICE_SCOPE = "service.scope";
    std::string const SCOPE_SINGLETON = "singleton";
    std::string const SCOPE_BUNDLE = "bundle";
    std::string const SCOPE_PROTOTYPE = "prototype";
} // namespace cppmicroservices::Constants
