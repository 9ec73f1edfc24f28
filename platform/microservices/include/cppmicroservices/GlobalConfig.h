#ifndef CPPMICROSERVICES_GLOBALCONFIG_H
#define CPPMICROSERVICES_GLOBALCONFIG_H

// Macros shared by the framework library and by bundle libraries: symbol
// visibility, token pasting, and the names of the glue symbols that connect a
// bundle library to the framework. The glue names are built from
// US_BUNDLE_NAME, a compile definition equal to the bundle's symbolic name.

#if defined(_WIN32)
#  define US_ABI_EXPORT __declspec(dllexport)
#  define US_ABI_IMPORT __declspec(dllimport)
#  define US_ABI_LOCAL
#else
#  define US_ABI_EXPORT __attribute__((visibility("default")))
#  define US_ABI_IMPORT __attribute__((visibility("default")))
#  define US_ABI_LOCAL __attribute__((visibility("hidden")))
#endif

// The framework library exports its whole public API.
#define US_Framework_EXPORT US_ABI_EXPORT

#define US_STR_IMPL(x) #x
#define US_STR(x) US_STR_IMPL(x)
#define US_CONCAT_IMPL(a, b) a##b
#define US_CONCAT(a, b) US_CONCAT_IMPL(a, b)

// Glue symbols of a bundle library, see BundleInitialization.h and
// BundleActivator.h.
#define US_GET_CTX_FUNC(bsn) US_CONCAT(_us_get_bundle_context_instance_, bsn)
#define US_SET_CTX_FUNC(bsn) US_CONCAT(_us_set_bundle_context_instance_, bsn)
#define US_CTX_INS(bsn) US_CONCAT(_us_bundle_context_instance_, bsn)
#define US_CREATE_ACTIVATOR_FUNC(bsn) US_CONCAT(_us_create_activator_, bsn)
#define US_DESTROY_ACTIVATOR_FUNC(bsn) US_CONCAT(_us_destroy_activator_, bsn)

#endif // CPPMICROSERVICES_GLOBALCONFIG_H
