#ifndef EMSUTIL_EXPORT_H
#define EMSUTIL_EXPORT_H

/// Macros that mark public declarations. A host (a program that uses emsutil) does not need to
/// define any macro, whether it links the shared or the static library.

/// Marks what libemsutil exports. The library is built with hidden visibility, which hides
/// everything that is not marked.
#define EMSUTIL_API __attribute__((visibility("default")))

/// Marks the constructor of a scope object, an object that acts until its block ends. The compiler
/// then warns of a scope object without a name, because that object would be destroyed at once. The
/// macro is empty before C++17, and for compilers that do not support [[nodiscard]] on
/// constructors.
#define EMSUTIL_SCOPE_OBJECT
#if __cplusplus >= 201703L && defined(__has_cpp_attribute)
#if __has_cpp_attribute(nodiscard) >= 201907L
#undef EMSUTIL_SCOPE_OBJECT
#define EMSUTIL_SCOPE_OBJECT [[nodiscard]]
#endif
#endif

#endif
