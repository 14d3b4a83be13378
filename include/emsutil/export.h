#ifndef EMSUTIL_EXPORT_H
#define EMSUTIL_EXPORT_H

/// The mark of what libemsutil exports.

/// The library is built with hidden visibility, so a name without this mark stays inside it. Hosts
/// need to define nothing, whichever way they link.
#define EMSUTIL_API __attribute__((visibility("default")))

#endif
