#ifndef EMSUTIL_EXPORT_H
#define EMSUTIL_EXPORT_H

/// The marks of public declarations. A host does not need to define a macro, whether it links the
/// shared or the static library.

/// Marks what libemsutil exports: the library is built with hidden visibility.
#define EMSUTIL_API __attribute__((visibility("default")))

/// Marks the constructor of a scope object, so that the compiler warns of an object without a name,
/// which would be destroyed at once. Empty before C++17, and for compilers that do not support
/// [[nodiscard]] on constructors.
#define EMSUTIL_SCOPE_OBJECT
#if __cplusplus >= 201703L && defined(__has_cpp_attribute)
#if __has_cpp_attribute(nodiscard) >= 201907L
#undef EMSUTIL_SCOPE_OBJECT
#define EMSUTIL_SCOPE_OBJECT [[nodiscard]]
#endif
#endif

#endif
