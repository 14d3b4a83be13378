#ifndef EMSUTIL_GENERAL_COMMAND_H
#define EMSUTIL_GENERAL_COMMAND_H

/// General commands: named requests that one module of a process hands to another.
///
/// A module registers a handler under a name; any thread fills a command and either runs it at
/// once or queues a copy, which a thread of the host's choice runs when it drains the queue.
///
///     using namespace NSQN_EMSUTIL_AGENT;
///
///     int SetLevel(EmsGeneralCmd* cmd, EmsGeneralCmd*)
///     {
///         return std::puts(cmd->ToString().c_str());
///     }
///
///     std::string name = "SetLevel";
///     RegEmsUtilCmd registration(name, SetLevel);
///
///     EmsGeneralCmd cmd;
///     cmd.name = name;
///     addGeneralCmd(cmd); // any thread: queue a copy
///     runGeneralCmd();    // the draining thread: run what is queued
///
/// Thread safety: any thread may register, add and run at any time; one thread at a time drains.
/// A record has no lock: threads may read it together, and none may change it meanwhile.
/// Ownership: a record owns all that it holds and every copy is deep. The queue owns its copies.
/// Errors: nothing is reported; a call that cannot do its work does nothing. std::bad_alloc passes
/// to the caller and leaves nothing behind, except that an assignment may be left half done.

#include <cstdint>
#include <list>
#include <string>

#include "emsutil/export.h"

namespace NSQN_EMSUTIL_AGENT {

/// How a pair's text is to be read.
enum : std::int32_t {
    NVTP_TYPE_STRING = 0, ///< plain text
    NVTP_TYPE_LONG = 1    ///< a signed decimal integer as text
};

// The five records below have the same operations. None reports an error or blocks, and each may
// be called from anywhere:
//
//   X()                       every text and list empty, `rtype` NVTP_TYPE_STRING
//   X(const X&), operator=    a deep copy; assigning a record to itself changes nothing
//   std::string ToString()    the text form, for logs; nothing is escaped, a text field shows up
//                             to its first NUL. The record does not change.
//   static X FromString(t)    a new empty record; `t` is not read: a text form is not parsed back

/// One name, one value held as text, and the type code that says how to read the value.
///
/// Text form: "nvtp={name=N,value=V,rtype=String}", or "...,rtype=Long}" with the value read by
/// strtol in base 10 and reduced to 32 bits. Any other type code is kept and copied, and has an
/// empty text form.
class EMSUTIL_API EmsNameAndValueStringTypePair
{
public:
    std::string name;   ///< may be any text, the empty one included
    std::string value;  ///< likewise
    std::int32_t rtype; ///< NVTP_TYPE_STRING, NVTP_TYPE_LONG, or a code of the host's own

    EmsNameAndValueStringTypePair();
    EmsNameAndValueStringTypePair(const EmsNameAndValueStringTypePair& other);
    EmsNameAndValueStringTypePair& operator=(const EmsNameAndValueStringTypePair& other);

    std::string ToString();
    static EmsNameAndValueStringTypePair FromString(std::string& text);
};

/// Pairs in the order in which they were appended; names may repeat.
///
/// Text form: "nvtps={", the pairs separated by ",", "}".
class EMSUTIL_API EmsNVTPList
{
public:
    std::list<EmsNameAndValueStringTypePair> nvtps; ///< the pairs

    EmsNVTPList();
    EmsNVTPList(const EmsNVTPList& other);
    EmsNVTPList& operator=(const EmsNVTPList& other);

    std::string ToString();
    static EmsNVTPList FromString(std::string& text);
};

/// One object: its attributes. Text form: "obj={", the attributes, "}".
class EMSUTIL_API EmsGeneralObj
{
public:
    EmsNVTPList nvtps; ///< its attributes

    EmsGeneralObj();
    EmsGeneralObj(const EmsGeneralObj& other);
    EmsGeneralObj& operator=(const EmsGeneralObj& other);

    std::string ToString();
    static EmsGeneralObj FromString(std::string& text);
};

/// Objects in the order of appending. Text form: "objs={", the objects separated by ",", "}".
class EMSUTIL_API EmsGeneralObjList
{
public:
    std::list<EmsGeneralObj> objs; ///< the objects

    EmsGeneralObjList();
    EmsGeneralObjList(const EmsGeneralObjList& other);
    EmsGeneralObjList& operator=(const EmsGeneralObjList& other);

    std::string ToString();
    static EmsGeneralObjList FromString(std::string& text);
};

/// One command: the name that selects its handler, the objects that it carries, its parameters.
///
/// Text form: ":NAME={", the objects, ",", the parameters, "};".
class EMSUTIL_API EmsGeneralCmd
{
public:
    std::string name;       ///< selects the handler
    EmsGeneralObjList objs; ///< what it is about
    EmsNVTPList nvtps;      ///< its parameters

    EmsGeneralCmd();
    EmsGeneralCmd(const EmsGeneralCmd& other);
    EmsGeneralCmd& operator=(const EmsGeneralCmd& other);

    std::string ToString();
    static EmsGeneralCmd FromString(std::string& text);
};

/// A handler gets the command, valid during the call, and null. Its result is not read.
///
/// It runs on the thread that runs the command, with no lock of the library held: it may register,
/// add and run commands. An exception that it throws leaves runGeneralCmd(); commands still queued
/// stay queued, in order. In a drain it must not wait for a thread that adds: that thread may
/// itself be waiting for this drain to make room.
typedef int (*EmsGeneralCmdHandler)(EmsGeneralCmd*, EmsGeneralCmd*);

/// Registers a handler for the life of the process. An object at namespace scope registers while
/// its module is initialised; destroying one undoes nothing.
class EMSUTIL_API RegEmsUtilCmd
{
public:
    /// Registers `handler` under a copy of `name`, any bytes, the empty name included. The first
    /// registration of a name stays in force; a later one, or a null handler, is ignored. Waits for
    /// no more than another registration or look-up, so it may be called from anywhere.
    RegEmsUtilCmd(std::string& name, EmsGeneralCmdHandler handler);
};

/// Queues a copy of `cmd`, which stays the caller's.
///
/// The queue is full from 16384 bytes on, counted as sizeof(EmsGeneralCmd) a command: 205 commands
/// on x86-64. While it is full the call waits for room, without a time limit, until a drain takes
/// one. On the thread that drains, that is from a handler that a drain runs, it never waits for
/// room, but queues past the limit. From a timer callback or a buffer's destructor it would hold up
/// what runs there.
EMSUTIL_API void addGeneralCmd(EmsGeneralCmd& cmd);

/// Runs the handler of `cmd.name` at once on the calling thread, with `cmd` itself: what the
/// handler changes there the caller sees. Does nothing when the name has none. The queue is not
/// touched. May be called from anywhere that the handler may run.
EMSUTIL_API void runGeneralCmd(EmsGeneralCmd& cmd);

/// Runs the queued commands on the calling thread in the order in which they were added, those
/// added meanwhile included, until the queue is empty. A command whose name has no handler when
/// its turn comes is dropped. May be called from a handler too; what is queued then runs inside it.
///
/// Waits for nothing but the queue's own lock; while taking that fails, it tries again. A command
/// whose handler cannot be looked up because a lock fails is dropped.
///
/// REQUIRES: no other thread is draining. Two drains lose no command and run none twice, but they
/// run commands side by side, so out of order.
EMSUTIL_API void runGeneralCmd();

} // namespace NSQN_EMSUTIL_AGENT

#endif
