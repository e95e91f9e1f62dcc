#include <foundation/log/basic_diagnostic_logger.hpp>

#include <boost/core/demangle.hpp>

#include <exception>
#include <string_view>
#include <typeinfo>

#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#endif

namespace foundation::log {
namespace {

// std::throw_with_nested throws an object of a type that wraps the caller's type. The wrapper's name differs
// between standard libraries and tells the reader nothing.
std::string withoutNestingWrapper(std::string name)
{
    for (std::string_view const wrapper :
         {"std::_Nested_exception<", "std::__1::__nested<", "std::__nested<"}) {
        if (name.compare(0, wrapper.size(), wrapper) == 0 && name.back() == '>') {
            return name.substr(wrapper.size(), name.size() - wrapper.size() - 1);
        }
    }
    return name;
}

std::string readableName(std::type_info const& type)
{
    return withoutNestingWrapper(boost::core::demangle(type.name()));
}

// Returns the type of the exception being handled, which may be of any type.
std::string currentTypeName()
{
#if __has_include(<cxxabi.h>)
    if (std::type_info const* const type = abi::__cxa_current_exception_type()) {
        return readableName(*type);
    }
#endif
    return "unknown exception";
}

// Adds the description of `exception` to `chain`. Returns the exception nested in it, or null.
std::exception_ptr describe(std::exception_ptr const& exception, std::string& chain)
{
    try {
        std::rethrow_exception(exception);
    } catch (std::exception const& known) {
        chain += readableName(typeid(known)) + ": " + known.what();
        auto const* const nesting = dynamic_cast<std::nested_exception const*>(&known);
        return nesting != nullptr ? nesting->nested_ptr() : nullptr;
    } catch (std::nested_exception const& nesting) {
        chain += readableName(typeid(nesting));
        return nesting.nested_ptr();
    } catch (...) {
        chain += currentTypeName();
        return nullptr;
    }
}

} // namespace

namespace detail {

std::string current_exception_chain_as_string()
{
    std::exception_ptr exception = std::current_exception();
    if (!exception) {
        return "no exception";
    }
    std::string chain;
    while (exception) {
        chain += chain.empty() ? "" : " <- ";
        exception = describe(exception, chain);
    }
    return chain;
}

} // namespace detail

} // namespace foundation::log
