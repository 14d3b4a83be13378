#ifndef EMSUTIL_GENERAL_COMMAND_H
#define EMSUTIL_GENERAL_COMMAND_H

/// General commands: named requests from one module of a process to another.
///
/// A module registers a handler under a name. Any thread fills a command, and then runs it at once
/// or queues a copy. The host is the program that uses emsutil. The host's draining thread drains
/// the queue: it runs the queued commands.
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
/// The queue is bounded: addGeneralCmd() waits while the queue is full. A program with only one
/// thread must therefore drain before the queue is full. Otherwise it waits for ever.
///
/// Thread safety: any thread may register, add and run at any time. Only one thread at a time
/// should drain. A record (an object of one of the five classes below) has no lock. Several threads
/// may read a record at the same time. A thread must not change a record while another thread uses
/// it.
/// Ownership: a record owns all that it holds, and every copy is deep. The queue owns its copies.
/// Errors: no function reports an error. A call that fails does nothing, except that a drain drops
/// a command whose handler it does not find. If the library runs out of memory, std::bad_alloc
/// passes to the caller. The call has then done nothing, with two exceptions: an assignment may
/// have changed a part of its target, and a drain may already have run some commands. If ACE cannot
/// allocate its own part of a command's entry in the queue, addGeneralCmd() drops the command and
/// throws nothing.

#include <cstdint>
#include <list>
#include <string>

#include "emsutil/export.h"

namespace NSQN_EMSUTIL_AGENT {

/// The type codes of a value.
enum : std::int32_t {
    NVTP_TYPE_STRING = 0, ///< plain text
    NVTP_TYPE_LONG = 1    ///< a signed decimal integer as text
};

// The five records below have the same operations. None of these operations reports an error, and
// none waits. Each may be called from a command handler, a timer callback or the destructor of a
// transaction log's buffer:
//
//   X()                       creates an empty record: every text and list is empty, and `rtype` is
//                             NVTP_TYPE_STRING
//   X(const X&), operator=    copy deeply. Assigning a record to itself changes nothing.
//   std::string ToString()    returns the text form, for logs. Nothing is escaped, and a text is
//                             shown up to its first NUL. Does not change the record.
//   static X FromString(t)    returns a new empty record. Does not read `t`: a text form cannot be
//                             converted back.

/// One name, one value as text, and the type code of the value.
///
/// Text form: "nvtp={name=N,value=V,rtype=String}" or "nvtp={name=N,value=V,rtype=Long}". In the
/// second form strtoll() reads a number from the value in base 10, and V is the low 32 bits of that
/// number, as a signed number. Leading blanks and a sign are accepted. Reading stops at the first
/// character that is not a digit, and a value without digits is 0.
///
/// A record with any other type code is stored and copied like these, but its text form is empty.
class EMSUTIL_API EmsNameAndValueStringTypePair
{
public:
    std::string name;   ///< any text, which may be empty
    std::string value;  ///< any text, which may be empty
    std::int32_t rtype; ///< NVTP_TYPE_STRING, NVTP_TYPE_LONG, or a code of the host

    EmsNameAndValueStringTypePair();
    EmsNameAndValueStringTypePair(const EmsNameAndValueStringTypePair& other);
    EmsNameAndValueStringTypePair& operator=(const EmsNameAndValueStringTypePair& other);

    std::string ToString();
    static EmsNameAndValueStringTypePair FromString(std::string& text);
};

/// Pairs in the order in which they were appended. Names may repeat.
///
/// Text form: "nvtps={", then the pairs with "," between them, then "}".
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

/// One object, which consists of its attributes. Text form: "obj={", the text form of the list
/// `nvtps`, "}".
class EMSUTIL_API EmsGeneralObj
{
public:
    EmsNVTPList nvtps; ///< the attributes

    EmsGeneralObj();
    EmsGeneralObj(const EmsGeneralObj& other);
    EmsGeneralObj& operator=(const EmsGeneralObj& other);

    std::string ToString();
    static EmsGeneralObj FromString(std::string& text);
};

/// Objects in the order in which they were appended.
///
/// Text form: "objs={", then the objects with "," between them, then "}".
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

/// One command: the name that selects its handler, its objects and its parameters.
///
/// Text form: ":NAME={", then the objects, then ",", then the parameters, then "};".
class EMSUTIL_API EmsGeneralCmd
{
public:
    std::string name;       ///< selects the handler
    EmsGeneralObjList objs; ///< the objects that the command is about
    EmsNVTPList nvtps;      ///< the parameters of the command itself

    EmsGeneralCmd();
    EmsGeneralCmd(const EmsGeneralCmd& other);
    EmsGeneralCmd& operator=(const EmsGeneralCmd& other);

    std::string ToString();
    static EmsGeneralCmd FromString(std::string& text);
};

/// A handler receives the command and, as its second argument, null. The command is valid until the
/// handler returns. The value that the handler returns is ignored.
///
/// A handler runs on the thread that runs the command. The library holds no lock meanwhile, so a
/// handler may register handlers, and may add and run commands. An exception of a handler passes to
/// the caller of runGeneralCmd(). Commands that are still queued stay queued, in order.
///
/// In a drain a handler must not wait for a thread that adds a command, because that thread may be
/// waiting for this drain to make room.
typedef int (*EmsGeneralCmdHandler)(EmsGeneralCmd*, EmsGeneralCmd*);

/// Registers a handler until the process ends. An object at namespace scope registers its handler
/// while its module is initialised. The handler stays registered when the object is destroyed.
class EMSUTIL_API RegEmsUtilCmd
{
public:
    /// Registers `handler` under a copy of `name`. The name may have any bytes, and may be empty.
    /// Ignores a null handler. The first handler of a name stays in force, and later ones are
    /// ignored. Waits only for another registration or look-up. May be called from a command
    /// handler, a timer callback or the destructor of a transaction log's buffer.
    RegEmsUtilCmd(std::string& name, EmsGeneralCmdHandler handler);
};

/// Queues a copy of `cmd`. Once the call has returned, the caller may change or destroy `cmd`.
///
/// The queue is full when it has 16384 bytes or more, counted as sizeof(EmsGeneralCmd) per command.
/// On x86-64 it is full with 205 commands. While the queue is full the call waits, without a time
/// limit, until a drain removes a command. In a handler that a drain runs, the call never waits for
/// room: it adds the command beyond the limit.
///
/// A timer callback or the destructor of a transaction log's buffer should not add a command: while
/// the queue is full, it would wait, and with it all other work of the thread that runs it.
EMSUTIL_API void addGeneralCmd(EmsGeneralCmd& cmd);

/// Runs the handler of `cmd.name` at once on the calling thread. The handler receives `cmd` itself,
/// so the caller sees the handler's changes. Returns when the handler has returned, or at once if
/// the name has no handler. Does not use the queue. May be called from a command handler, a timer
/// callback or the destructor of a transaction log's buffer. What is forbidden there is then also
/// forbidden in the handler of `cmd.name`: for example, if a buffer's destructor makes the call,
/// the handler must not call an operation of a transaction log.
EMSUTIL_API void runGeneralCmd(EmsGeneralCmd& cmd);

/// Drains the queue: runs the queued commands on the calling thread, in the order in which they
/// were added, and returns when the queue is empty. Commands that are added meanwhile are run too.
/// A command is dropped if its name has no handler when its turn comes, or if a lock fails in the
/// look-up of the handler.
///
/// A handler may call runGeneralCmd() too. The queued commands then run before that inner call
/// returns.
///
/// Waits only for the queue's own lock, and for registrations and other look-ups. As long as the
/// queue's lock fails, the call tries again.
///
/// Only one thread at a time should drain. Two drains at the same time lose no command and run no
/// command twice. But they run commands at the same time, and therefore out of order.
EMSUTIL_API void runGeneralCmd();

} // namespace NSQN_EMSUTIL_AGENT

#endif
