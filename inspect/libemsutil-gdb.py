"""What libemsutil knows of a process, as gdb's commands `emsutil threads`, `commands`, `logs`,
`locks`, `timers` and `all`. gdb loads this file with the library; emsutil-inspect runs it too.

The process or core is only read: no function is called in it and nothing is written. It was stopped
at any moment, so data may be half changed: each walk is bounded, and what could not be read is
listed among the problems. Members are found by their names in the debug information.
"""

import collections
import functools
import json
import os
import re
import struct
import time

import gdb

MOST_ELEMENTS = 10000  # shown of one container
LONGEST_TEXT = 65536  # bytes read of one text
LONGEST_SHOWN = 1000  # characters printed of one text
HOST_FRAMES_SHOWN = 3
MOST_FRAMES = 256  # read per thread
MOST_SECONDS = 10  # of reading, during which a live process stands still

AGENT = 'NSQN_EMSUTIL_AGENT::'
UTIL = 'NSQN_util::'
LIBRARY = 'libemsutil'
SECTIONS = ('threads', 'commands', 'logs', 'locks', 'timers')

READ, PARTLY_READ, NOT_READ = 0, 1, 3  # exit status; 2 is that of wrong arguments


class Failure(Exception):
    """Nothing can be shown, and why: `what: why`."""


class Problems:
    """What could not be read, and the time that is left for reading."""

    def __init__(self):
        self.texts = []
        self.deadline = time.monotonic() + MOST_SECONDS

    def add(self, text):
        if text not in self.texts:
            self.texts.append(text)

    def is_late(self):
        return time.monotonic() > self.deadline


# Processes ----------------------------------------------------------------------------------------

def is_local():
    """Whether gdb looks at a live process of this machine."""
    connection = gdb.selected_inferior().connection
    return connection is not None and connection.type == 'native'


def process_status(pid):
    """The lines of /proc/PID/status by their names; none of a process that is no more."""
    try:
        with open(f'/proc/{pid}/status', encoding='utf-8') as status:
            return dict(line.rstrip('\n').split(':\t', 1) for line in status if ':\t' in line)
    except OSError:
        return {}


def has_ended(pid):
    return process_status(pid).get('State', 'Z')[0] in 'ZX'


# Values -------------------------------------------------------------------------------------------

def lookup(name):
    return gdb.lookup_global_symbol(name) or gdb.lookup_static_symbol(name)


cut_off = []  # from a truncated core, start and end: gdb reads what their files had at first


def variable(name):
    """A variable with static storage."""
    symbol = lookup(name)
    if symbol is None:
        raise Failure(no_debug_information())
    value = symbol.value()
    for start, end in cut_off:
        if start <= int(value.address) < end:
            raise gdb.MemoryError(f'{name} is cut off from the core')
    return value.referenced_value() if value.type.code == gdb.TYPE_CODE_REF else value


def static_in(function, name):
    """A static variable of a function."""
    block = gdb.block_for_pc(int(variable(function).address))
    while block.function is None:
        block = block.superblock
    return next(symbol for symbol in block if symbol.name == name).value()


def instance(name):
    """What a process-wide pointer points to; None before the object is created."""
    pointer = variable(name)
    return pointer.dereference() if int(pointer) != 0 else None


def no_debug_information():
    """Why there is no symbol of the library."""
    inferior = gdb.selected_inferior()
    if is_local() and has_ended(inferior.pid):
        return f'process {inferior.pid}: it has ended'
    modules = [objfile.filename for objfile in gdb.objfiles()
               if LIBRARY + '.so' in objfile.filename]
    if modules:
        return (f'{modules[0]}: it has no debug information: install the package '
                f'{LIBRARY}{soname_version(modules[0])}-dbgsym of the same version')
    program = gdb.current_progspace().filename
    return (f'{program}: it does not use {LIBRARY}, or has it linked in and no debug information: '
            f'then give a program that has it')


def soname_version(path):
    found = re.search(r'\.so\.(\d+)', os.path.basename(os.path.realpath(path)))
    return found.group(1) if found else ''


def elements(problems, what, nodes, count):
    """The nodes of a container that says it has `count`, as far as they can be read."""
    number = 0
    try:
        for node in nodes:
            if number == MOST_ELEMENTS or problems.is_late():
                problems.add(f'{what}: only {number} of {count} are shown')
                return
            number += 1
            yield node
    except (gdb.MemoryError, LookupError) as error:
        problems.add(f'{what}: only {number} of {count} could be read: {error}')
        return
    if number != count:
        problems.add(f'{what}: {number} found, but {count} counted: they were being changed')


def tree(problems, what, container):
    """The elements of a std::map or std::set in order."""
    impl = container['_M_t']['_M_impl']
    kind = container['_M_t'].type.strip_typedefs().name
    link = gdb.lookup_type(kind + '::_Link_type').strip_typedefs()

    def nodes():
        seen = {int(impl['_M_header'].address)}
        path = []
        node = impl['_M_header']['_M_parent']
        while path or int(node) != 0:
            while int(node) != 0:
                if int(node) in seen:
                    raise LookupError('the links form a circle')
                seen.add(int(node))
                path.append(node)
                node = node['_M_left']
            node = path.pop()
            yield stored(node.cast(link))
            node = node['_M_right']

    return elements(problems, what, nodes(), int(impl['_M_node_count']))


def linked(problems, what, container):
    """The elements of a std::list in order."""
    end = container['_M_impl']['_M_node']
    kind = container.type.strip_typedefs().template_argument(0)
    link = gdb.lookup_type(f'std::_List_node<{kind.name}>').pointer()

    def nodes():
        seen = set()
        node = end['_M_next']
        while int(node) != int(end.address):
            if int(node) in seen:
                raise LookupError('the links form a circle')
            seen.add(int(node))
            yield stored(node.cast(link))
            node = node['_M_next']

    return elements(problems, what, nodes(), int(end['_M_size']))


def stored(node):
    """The element in a node of a container."""
    storage = node['_M_storage']
    return storage.address.cast(storage.type.template_argument(0).pointer()).dereference()


def text_of(string):
    """A std::string up to its first NUL, as in the library's own output."""
    length = int(string['_M_string_length'])
    data = memory(int(string['_M_dataplus']['_M_p']), min(length, LONGEST_TEXT))
    text = data.split(b'\0')[0].decode('utf-8', 'replace')
    return text if length <= LONGEST_TEXT else f'{text}... ({length} bytes)'


def pointer_in(value):
    """The pointer in a std::unique_ptr or std::atomic: the first member that is one."""
    kind = value.type.strip_typedefs()
    if kind.code == gdb.TYPE_CODE_PTR:
        return value
    if kind.code == gdb.TYPE_CODE_STRUCT:
        for field in kind.fields():
            found = pointer_in(value[field]) if hasattr(field, 'bitpos') else None
            if found is not None:
                return found
    return None


def memory(address, size):
    return bytes(gdb.selected_inferior().read_memory(address, size)) if size > 0 else b''


def seconds(time_value):
    """Of an ACE_Time_Value."""
    return int(time_value['tv_']['tv_sec']) + int(time_value['tv_']['tv_usec']) / 1e6


# Names --------------------------------------------------------------------------------------------

def symbol_at(address):
    """The symbol of data or code at an address, or None."""
    text = gdb.execute(f'info symbol {address:#x}', to_string=True)
    found = re.match(r'(.*) in section ', text)
    return found.group(1) if found else None


def function_name(name):
    """Without arguments: `f` of `ns::(anonymous namespace)::f(int)` with its namespaces."""
    name = name.replace('(anonymous namespace)::', '').replace('operator()', 'operator\0')
    name = re.sub(r'\{lambda\([^{}]*\)(#\d+)?\}', '{lambda}', name)
    before = None
    while before != name:  # innermost parentheses first; those after & only group
        before, name = name, re.sub(r'&\(([^()]*)\)|\([^()]*\)( const)?', r'\1', name)
    name = re.sub(r'^[\w:]+[ *&]+(?=[\w:]+<)', '', name)  # the result of a template
    return name.replace('operator\0', 'operator()').replace('<&', '<')


def place_of(frame):
    """FILE:LINE where a frame is, or None; where its function begins, if it is in code of another
    file that was inlined."""
    line, function = frame.find_sal(), frame.function()
    if line.symtab is None or function is None:
        return None
    if line.symtab.filename != function.symtab.filename:
        line = function
    return f'{os.path.basename(line.symtab.filename)}:{line.line}'


mapped_files = []  # start, end, offset and path, as a truncated core has them


def module_at(address):
    """The file name of the library or program that has this code."""
    mapped = [name for start, end, _, name in mapped_files if start <= address < end]
    return os.path.basename((mapped or [gdb.solib_name(address)])[0]
                            or gdb.current_progspace().filename or '?')


def function_at(address):
    """The function that begins at an address, and its place if it is known."""
    symbol = symbol_at(address)
    if symbol is None:
        return f'{address:#x} in {module_at(address)}'
    line = gdb.find_pc_line(address)
    place = f' ({os.path.basename(line.symtab.filename)}:{line.line})' if line.symtab else ''
    return function_name(symbol) + place


def dynamic_type(address):
    """The class of an object with virtual functions, by its table of them."""
    table = struct.unpack('P', memory(address, struct.calcsize('P')))[0]
    symbol = symbol_at(table) or ''
    found = re.match(r'vtable for (.*) \+ \d+$', symbol)
    return found.group(1) if found else f'unknown, with its virtual functions at {table:#x}'


# Threads ------------------------------------------------------------------------------------------

# The machine whose system calls and thread registers are known here: x86-64.
ARCHITECTURE = 'i386:x86-64'
THREAD_REGISTER = 'fs_base'  # has what pthread_self() returns
CALL_REGISTER = 'orig_rax'
CALLS_FUTEX = (202, 219)  # futex, and restart_syscall where a debugger has interrupted it before
ARGUMENT_REGISTERS = ('rdi', 'rsi', 'rdx')

FUTEX_WAIT, FUTEX_LOCK_PI, FUTEX_WAIT_BITSET, FUTEX_LOCK_PI2 = 0, 6, 9, 13
FUTEX_COMMAND = 0x7f  # without flags
LOCKED_AND_WAITED_FOR = 2  # what a thread that waits for a mutex expects there

C_LIBRARY = re.compile(r'(libc|libpthread|ld-linux[^.]*)[.-]|.*vdso')
SYSTEM_LIBRARY = re.compile(r'(libstdc\+\+|libgcc_s|libm|libACE)[.-]')
SYSTEM_FUNCTION = re.compile(r'(std|__gnu_cxx)::|__gthr|ACE_')

Frame = collections.namedtuple('Frame', 'name place module')


class Thread:
    """A thread of the process: what it runs and what it waits for."""

    def __init__(self, thread, own_ids, problems):
        thread.switch()
        self.lwp = thread.ptid[1]
        self.own_id = own_ids.get(self.lwp, self.lwp)  # the id that the process itself knows
        self.pthread = None  # what pthread_self() returns
        self.futex = None  # address, command, expected value of the futex that it waits for
        self.frames = []  # innermost first
        self.command = None  # the one that a drain runs: its name and text
        self.waits_for = None  # what it waits for, in words
        self.waits_for_lock = None
        self.waits_for_thread = None
        self.record = None  # the thread monitor's
        try:
            self._read(problems)
        except gdb.error as error:
            problems.add(f'thread {self.lwp}: its stack could not be read: {error}')

    def _read(self, problems):
        frame = gdb.newest_frame()
        if frame.architecture().name() == ARCHITECTURE:
            self._read_registers(frame)
        else:
            problems.add(f'threads: on {frame.architecture().name()} they are not matched with '
                         'their records, and what they wait for is not known')
        while frame is not None and len(self.frames) < MOST_FRAMES:
            name = frame.name()
            self.frames.append(Frame(function_name(name) if name else None, place_of(frame),
                                     module_at(frame.pc())))
            if self.command is None:
                self.command = command_in(frame, self.frames[-1].name, problems)
            frame = frame.older()

    def _read_registers(self, frame):
        self.pthread = int(frame.read_register(THREAD_REGISTER)) % 2 ** 64
        address, operation, expected = (int(frame.read_register(name)) % 2 ** 64
                                        for name in ARGUMENT_REGISTERS)
        command = operation & FUTEX_COMMAND
        if (int(frame.read_register(CALL_REGISTER)) in CALLS_FUTEX and command in
                (FUTEX_WAIT, FUTEX_LOCK_PI, FUTEX_WAIT_BITSET, FUTEX_LOCK_PI2)):
            self.futex = (address, command, expected % 2 ** 32)

    def call(self):
        """The function of the C library that it is in, by the name that a program calls it by."""
        name = None
        for frame in self.frames:
            if not C_LIBRARY.match(frame.module):
                break
            name = frame.name or name
        return re.sub(r'^(__GI_)?_+(libc_)?|64$|@.*', '', name) if name else None

    def callers(self):
        """The frames that are not the system's."""
        return [frame for frame in self.frames
                if not C_LIBRARY.match(frame.module) and not SYSTEM_LIBRARY.match(frame.module)
                and not SYSTEM_FUNCTION.match(frame.name or '')
                and frame.name not in ('operator()', '_FUN')]  # lambdas, whose names say nothing

    def where(self):
        """What it runs: the C library's function, the library's that called it, and the host's."""
        chain = [self.call()] if self.call() else []
        callers = self.callers()
        if callers and is_ours(callers[0]):
            chain.append(callers[0].name.replace(AGENT, '').replace(UTIL, ''))
        hosts = [frame for frame in callers if not is_ours(frame)]
        for frame in hosts[:HOST_FRAMES_SHOWN]:
            if frame.name is None:
                chain.append('a function of ' + frame.module)
                break  # the host has no symbols, and more of these say no more
            chain.append(f'{frame.name} ({frame.place})' if frame.place else frame.name)
        return ' < '.join(chain) or 'unknown'

    def is_draining(self):
        return any(frame.name == AGENT + 'EmsGeneralCmdMgr::Drain' for frame in self.frames)

    def handler(self):
        """The handler that its innermost drain is in, or None in between."""
        inner = None
        for frame in self.frames:
            if frame.name in (AGENT + 'EmsGeneralCmdMgr::Run', AGENT + 'EmsGeneralCmdMgr::Drain'):
                break
            inner = frame
        if inner is None or inner not in self.callers() or is_ours(inner):
            return None
        return inner.name or 'a function of ' + inner.module


def is_ours(frame):
    return (frame.name or '').startswith((AGENT, UTIL))


def command_in(frame, function, problems):
    """The command that a frame of the library runs, if the compiler has kept it readable."""
    try:
        if function == AGENT + 'EmsGeneralCmdMgr::Run':
            command = frame.read_var('cmd').referenced_value()
        elif function == AGENT + 'EmsGeneralCmdMgr::Drain':
            command = pointer_in(frame.read_var('next')['m_pCmd']).dereference()
        else:
            return None
        return text_of(command['name']), command_text(problems, command)
    except (ValueError, gdb.error):
        return None


def command_text(problems, command):
    """As EmsGeneralCmd::ToString() writes it."""
    return (f':{text_of(command["name"])}={{objs={{'
            + ','.join(f'obj={{{values_text(problems, obj["nvtps"])}}}'
                       for obj in linked(problems, 'objects', command['objs']['objs']))
            + f'}},{values_text(problems, command["nvtps"])}}};')


def values_text(problems, values):
    pairs = []
    for pair in linked(problems, 'values', values['nvtps']):
        name, value, kind = text_of(pair['name']), text_of(pair['value']), int(pair['rtype'])
        if kind == 1:  # as strtol() reads it, in 32 bits
            digits = re.match(r'\s*[+-]?\d+', value)
            number = min(max(int(digits.group()), -2 ** 63), 2 ** 63 - 1) if digits else 0
            value = str((number + 2 ** 31) % 2 ** 32 - 2 ** 31)
        known = {0: 'String', 1: 'Long'}
        pairs.append(f'nvtp={{name={name},value={value},rtype={known[kind]}}}' if kind in known
                     else '')
    return f'nvtps={{{",".join(pairs)}}}'


def read_threads(problems):
    own_ids = own_thread_ids()
    threads = sorted(gdb.selected_inferior().threads(), key=lambda thread: thread.ptid[1])
    return [Thread(thread, own_ids, problems) for thread in threads]


def own_thread_ids():
    """By the kernel's thread ids those in the process's own namespace, which its mutexes have."""
    pid = gdb.selected_inferior().pid
    if not is_local():
        return {}
    return {int(lwp): int(process_status(f'{pid}/task/{lwp}').get('NSpid', lwp).split()[-1])
            for lwp in os.listdir(f'/proc/{pid}/task')}


# Locks --------------------------------------------------------------------------------------------

WRITE_PHASE, WRITE_LOCKED, READER = 1, 2, 8  # bits of pthread_rwlock_t's __readers
ROOM = 'room in the command queue'
TASK_MANAGERS = 'emsstandin::(anonymous namespace)::g_TaskManagers'


class Lock:
    """A mutex, reader-writer lock or condition of the C library, which all others are made of."""

    def __init__(self, name, value):
        data = value['__data']
        members = {field.name for field in data.type.strip_typedefs().fields()}
        self.name = name
        self.address = int(value.address)
        self.size = value.type.sizeof
        self.is_held = False
        self.owner_id = 0
        self.readers = 0
        self.waiting = []  # threads
        if '__owner' in members:
            self.kind = 'mutex'
            self.is_held = int(data['__lock']) != 0
            self.owner_id = int(data['__owner']) if self.is_held else 0
        elif '__cur_writer' in members:
            self.kind = 'reader-writer lock'
            bits = int(data['__readers'])
            if bits & WRITE_PHASE and bits & WRITE_LOCKED:
                self.is_held = True
                self.owner_id = int(data['__cur_writer'])
            elif not bits & WRITE_PHASE:
                self.readers = bits // READER
                self.is_held = self.readers > 0
        else:
            self.kind = 'condition'

    def has(self, address):
        return self.address <= address < self.address + self.size

    def owner(self, threads):
        return next((thread for thread in threads
                     if self.owner_id and thread.own_id == self.owner_id), None)

    def state(self, threads):
        if not self.is_held:
            return 'free'
        if self.readers:
            return f'held for reading, readers: {self.readers}'
        how = 'held' if self.kind == 'mutex' else 'held for writing'
        owner = self.owner(threads)
        if owner is not None:
            return f'{how} by thread {owner.lwp}'
        if self.owner_id:
            return f'{how} by thread {self.owner_id}, which has ended'
        return f'{how}, by which thread is not recorded'


def command_locks(_):
    commands = instance(AGENT + '(anonymous namespace)::g_pGeneralCmdMgr')
    if commands is None:
        return []
    queue = pointer_in(commands['m_pCmdQueue']).dereference()
    return [Lock('command handlers (m_CmdHandlerLock)', commands['m_CmdHandlerLock']['lock_']),
            Lock('command queue (m_pCmdQueue)', queue['lock_']['lock_']),
            Lock(ROOM, queue['not_full_cond_']['cond_'])]


def debug_lock(_):
    lock = static_in(AGENT + 'GetEmsUtilAgentDebugInterface()', 'lock')
    return [Lock('debug interface (lock)', lock['m_Object']['lock_'])]


def monitor_locks(_):
    monitor = instance(AGENT + 'EmsThreadInfoMgr::m_pInstance')
    if monitor is None:
        return []
    return [Lock('thread records (m_ThreadInfoLock)', monitor['m_ThreadInfoLock']['lock_']),
            Lock('report threads (m_ReportThreadLock)', monitor['m_ReportThreadLock']['lock_'])]


def log_locks(process):
    """That of the registry, and those of the logs as long as they are held."""
    registry = variable(UTIL + 'g_TransLogMapLock')
    locks = [Lock('registry of logs (g_TransLogMapLock)', registry['lock_'])]
    for handle, log in process.log_objects:
        counts, buffers = log['m_RefCountLock']['lock_'], log['m_TransBufLock']['lock_']
        if int(counts['__data']['__lock']) != 0:
            locks.append(Lock(f'counts of log {handle} (m_RefCountLock)', counts))
        if int(buffers['__data']['__readers']) not in (0, WRITE_PHASE):
            locks.append(Lock(f'buffers of log {handle} (m_TransBufLock)', buffers))
    return locks


def report_lock(_):
    report = instance(AGENT + '(anonymous namespace)::g_pReportFile')
    return [Lock('report file (m_Mutex)', report['m_Mutex']['lock_'])] if report else []


def text_lock(_):
    texts = instance(UTIL + 'QNMitLockErrMgr::m_pInstance')
    return [Lock('lock error texts (m_ThrIDInfoLock)',
                 texts['m_ThrIDInfoLock']['lock_'])] if texts else []


def manager_locks(_):
    if lookup(TASK_MANAGERS) is None:
        return []
    locks = []
    for number, manager in task_managers():
        store = pointer_in(manager['m_pStore']).dereference()
        locks += [Lock(f'task manager {number} (m_ControlLock)',
                       manager['m_ControlLock']['_M_mutex']),
                  Lock(f'tasks of manager {number} (m_Lock)', store['m_Lock']['_M_mutex'])]
    return locks


def library_locks(process):
    locks = []
    for part in (command_locks, debug_lock, monitor_locks, log_locks, report_lock, text_lock,
                 manager_locks):
        try:
            locks += part(process)
        except RuntimeError as error:
            process.problems.add(f'locks: {error}')
    return locks


def task_managers():
    """The stand-in's task managers by their ids."""
    managers = variable(TASK_MANAGERS)['_M_elems']
    first, last = managers.type.strip_typedefs().range()
    pointers = [(number, pointer_in(managers[number])) for number in range(first, last + 1)]
    return [(number, manager.dereference()) for number, manager in pointers if int(manager) != 0]


def find_waits(threads, locks):
    """Notes what each thread waits for in the kernel, and adds to `locks` those of the host."""
    draining = [thread for thread in threads if thread.is_draining()]
    for thread in threads:
        if thread.futex is None:
            continue
        address = thread.futex[0]
        lock = next((lock for lock in locks if lock.has(address)), None)
        if lock is None:
            thread.waits_for_thread = next(
                (other for other in threads if is_end_of(other, address)), None)
            if thread.waits_for_thread is not None:
                continue
            lock = host_lock(thread, threads)
            if lock is None:
                continue
            locks.append(lock)
        lock.waiting.append(thread)
        thread.waits_for_lock = lock
        if lock.name != ROOM:
            thread.waits_for_thread = lock.owner(threads)
        elif len(draining) == 1:
            thread.waits_for_thread = draining[0]


def is_end_of(thread, address):
    """Whether a futex is that of a join: the kernel's id in the thread's own block."""
    if thread.pthread is None or not thread.pthread <= address < thread.pthread + 4096:
        return False
    return struct.unpack('i', memory(address, 4))[0] == thread.own_id


def host_lock(thread, threads):
    """The lock that a thread waits for and that is not the library's; None if it waits for
    something that no thread owns, such as a condition."""
    address, command, expected = thread.futex
    call = thread.call() or ''
    kind = gdb.lookup_type('pthread_mutex_t')
    offsets = [0]
    if 'rwlock' in call:
        kind = gdb.lookup_type('pthread_rwlock_t')
        offsets = [field.bitpos // 8 for field in kind['__data'].type.strip_typedefs().fields()
                   if field.name in ('__wrphase_futex', '__writers_futex')]
    elif not ('mutex' in call or command in (FUTEX_LOCK_PI, FUTEX_LOCK_PI2)
              or command == FUTEX_WAIT and expected == LOCKED_AND_WAITED_FOR and call != 'syscall'):
        return None
    candidates = [Lock('', gdb.Value(address - offset).cast(kind.pointer()).dereference())
                  for offset in offsets]
    candidates = [lock for lock in candidates if lock.is_held]
    candidates.sort(key=lambda lock: lock.owner(threads) is None)
    if not candidates:
        return None
    lock = candidates[0]
    symbol = symbol_at(lock.address)
    lock.name = f'{lock.kind} {function_name(symbol) if symbol else hex(lock.address)}'
    return lock


def deadlocks(threads):
    """The cycles of threads that wait for each other."""
    found = []
    done = set()
    for thread in threads:
        path = []
        while thread is not None and thread.lwp not in done:
            done.add(thread.lwp)
            path.append(thread)
            thread = thread.waits_for_thread
        if thread in path:
            found.append(path[path.index(thread):])
    return found


# What is shown: data, as in the JSON form, and then text ------------------------------------------

class Process:
    """A stopped process or core, each part of which is read once, when it is first asked for."""

    def __init__(self, overdue):
        inferior = gdb.selected_inferior()
        if inferior.pid == 0:
            raise Failure('there is no process and no core: attach PID, or core-file FILE')
        self.pid = inferior.pid
        self.overdue = overdue
        self.problems = Problems()
        self.core = core_file()
        self.now = os.stat(self.core).st_mtime if self.core else time.time()
        if self.core:
            truncation = CoreFile(self.core).truncation()
            if truncation:
                self.problems.add(f'{self.core}: {truncation}')

    @functools.cached_property
    def all_threads(self):
        return read_threads(self.problems)

    @functools.cached_property
    def log_objects(self):
        found = tree(self.problems, 'logs', variable(UTIL + 'g_TransLogMap'))
        return [(int(entry['first']), entry['second'].dereference()) for entry in found]

    @functools.cached_property
    def all_locks(self):
        locks = library_locks(self)
        find_waits(self.all_threads, locks)
        return locks

    def lwp_of(self, own_id):
        return next((thread.lwp for thread in self.all_threads if thread.own_id == own_id), None)

    def threads(self):
        try:
            records = self.records()
        except gdb.MemoryError as error:
            self.problems.add(f'threads: {error}')
            records = None
        recorded = {record['lwp'] for record in records or []}
        others = [{'lwp': thread.lwp, 'function': thread.where()}
                  for thread in self.all_threads if thread.lwp not in recorded]
        return {'records': records, 'others': others}

    def records(self):
        monitor = instance(AGENT + 'EmsThreadInfoMgr::m_pInstance')
        if monitor is None:
            return []
        by_pthread = {thread.pthread: thread for thread in self.all_threads}
        records = [self.record(entry['second'], by_pthread)
                   for entry in tree(self.problems, 'threads', monitor['m_ThreadInfoMap'])]
        return sorted(records, key=lambda record: (not record['inside'], -record['elapsed']))

    def record(self, info, by_pthread):
        identifier = int(info['m_ulThreadId'])
        thread = by_pthread.get(identifier)
        since = seconds(info['m_StartTime'])
        elapsed = max(self.now - since, 0)
        inside = int(info['m_nStatus']) == 1
        values = [(text_of(value['first']), text_of(value['second']['first']))
                  for value in tree(self.problems, f'thread {identifier:#x}: named values',
                                    info['m_InfoMap'])]
        return {'thread': hex(identifier),
                'lwp': thread.lwp if thread else None,
                'inside': inside,
                'since': local_time(since),
                'elapsed': elapsed,
                'longest': seconds(info['m_MaxDuration']),
                'events': int(info['m_llRecvs']),
                'values': dict(values),
                'function': thread.where() if thread else None,
                'overdue': inside and self.overdue is not None and elapsed >= self.overdue}

    def commands(self):
        registry = instance(AGENT + '(anonymous namespace)::g_pGeneralCmdMgr')
        if registry is None:
            return None
        queue = pointer_in(registry['m_pCmdQueue']).dereference()
        used, limit = int(queue['cur_bytes_']), int(queue['high_water_mark_'])
        handlers = tree(self.problems, 'handlers', registry['m_CmdHandlerMap'])
        return {'bytes': used,
                'limit': limit,
                'full': used >= limit,
                'adding': [thread.lwp for lock in self.all_locks if lock.name == ROOM
                           for thread in lock.waiting],
                'draining': [{'lwp': thread.lwp,
                              'handler': thread.handler(),
                              'command': thread.command[0] if thread.command else None,
                              'text': thread.command[1] if thread.command else None,
                              'function': thread.where()}
                             for thread in self.all_threads if thread.is_draining()],
                'waiting': list(self.queued(queue)),
                'handlers': [{'name': text_of(entry['first']),
                              'function': function_at(int(entry['second']))}
                             for entry in handlers]}

    def queued(self, queue):
        def blocks():
            seen = set()
            block = queue['head_']
            while int(block) != 0:
                if int(block) in seen:
                    raise LookupError('the links form a circle')
                seen.add(int(block))
                yield block
                block = block['next_']

        kind = gdb.lookup_type(AGENT + 'EmsGeneralCmd').pointer()
        for block in elements(self.problems, 'queue', blocks(), int(queue['cur_count_'])):
            record = block['data_block_']['base_'].cast(kind)
            try:
                yield command_text(self.problems, record.dereference())
            except gdb.MemoryError as error:
                self.problems.add(f'queue: the command at {int(record):#x}: {error}')
                yield f'unreadable, at {int(record):#x}'

    def logs(self):
        found = []
        for handle, log in self.log_objects:
            try:
                found.append(self.log(handle, log))
            except gdb.MemoryError as error:
                self.problems.add(f'log {handle}: {error}')
        return found

    def log(self, handle, log):
        count, extra = int(log['m_nRefCount']['_M_i']), int(log['m_nRefCountEx']['_M_i'])
        buffers = []
        for entry in tree(self.problems, f'log {handle}: buffers', log['m_TransBufMap']):
            address = int(entry['second'])
            try:
                kind = dynamic_type(address) if address else 'destroyed'
            except gdb.MemoryError as error:
                self.problems.add(f'log {handle}: {error}')
                kind = 'unreadable'
            buffers.append({'name': text_of(entry['first']['first']),
                            'number': int(entry['first']['second']),
                            'type': kind,
                            'address': hex(address)})
        return {'handle': handle, 'references': count, 'extra': extra, 'orphan': count == extra,
                'buffers': buffers}

    def locks(self):
        threads = self.all_threads
        manager = instance(UTIL + 'QNMitLockErrMgr::m_pInstance')
        texts = []
        if manager is not None:
            for entry in tree(self.problems, 'lock error texts', manager['m_ThrIDInfoMap']):
                identifier = int(entry['first'])
                texts.append({'thread': identifier, 'lwp': self.lwp_of(identifier),
                              'text': text_of(entry['second'])})
        return {'locks': [{'name': lock.name, 'state': lock.state(threads),
                           'owner': lock.owner(threads).lwp if lock.owner(threads) else None,
                           'waiting': [{'lwp': thread.lwp, 'function': thread.where()}
                                       for thread in lock.waiting]}
                          for lock in self.all_locks],
                'texts': texts,
                'joins': [{'lwp': thread.lwp, 'other': thread.waits_for_thread.lwp,
                           'function': thread.where()}
                          for thread in threads
                          if thread.waits_for_thread and not thread.waits_for_lock],
                'deadlocks': [[waiting(thread) for thread in cycle]
                              for cycle in deadlocks(threads)]}

    def timers(self):
        """None without the stand-in platform."""
        if lookup(TASK_MANAGERS) is None:
            return None
        found = []
        for number, manager in task_managers():
            kind = gdb.lookup_type('emsstandin::Interval').pointer()
            store = pointer_in(manager['m_pStore']).dereference()
            has_own_clock = int(pointer_in(manager['m_pTimer'])) != 0
            now = time.monotonic() if has_own_clock and self.core is None else None
            what = f'task manager {number}'
            rings = [(queue, False) for queue in linked(self.problems, what, store['m_Queues'])]
            for ring, fires in rings + [(store['m_Expired'], True)]:
                for link in self.ring(what, ring):
                    found.append(self.timer(number, link.cast(kind), fires, now))
        return sorted(found, key=lambda timer: (timer['manager'], timer['due']))

    def ring(self, what, ring):
        """The other links of a ring."""
        seen = {int(ring.address)}
        link = ring['m_pNext']
        while int(link) != int(ring.address):
            if int(link) in seen or self.problems.is_late() or len(seen) > MOST_ELEMENTS:
                self.problems.add(f'{what}: only {len(seen) - 1} timers are shown')
                return
            seen.add(int(link))
            yield link
            link = link['m_pNext']

    def timer(self, manager, interval, fires, now):
        state = interval['m_Task'].referenced_value()
        address = int(state['m_Task'].referenced_value().address)
        due = int(interval['m_Due']['__r']) / 1e6
        kind = dynamic_type(address)
        function = None
        if kind == AGENT + 'EmsUtilAgentTimerTask':
            task = state['m_Task'].referenced_value().cast(gdb.lookup_type(kind))
            function = int(task['m_Interface']['pfnTimeout'])
        return {'manager': manager, 'task': state['m_pName'].string(), 'type': kind,
                'address': hex(address), 'function': function_at(function) if function else None,
                'fires': fires, 'due': due, 'remaining': None if now is None else due - now}

    def read(self, sections):
        data = {'pid': self.pid, 'core': self.core, 'time': local_time(self.now)}
        for section in sections:
            try:
                data[section] = getattr(self, section)()
            except RuntimeError as error:  # also of members that have changed
                self.problems.add(f'{section}: {error}')
        data['problems'] = self.problems.texts
        return data


def core_file():
    """The path of the core that gdb looks at, or None for a live process."""
    inferior = gdb.selected_inferior()
    if inferior.connection is None or inferior.connection.type != 'core':
        return None
    return re.search(r"core dump file:\s+`(.*)', file type",
                     gdb.execute('info files', to_string=True)).group(1)


def local_time(when):
    return time.strftime('%Y-%m-%d %H:%M:%S', time.localtime(when))


def waiting(thread):
    """One thread of a deadlock."""
    other = thread.waits_for_thread
    lock = thread.waits_for_lock
    if lock is None:
        what = f'thread {other.lwp} to end'
    elif lock.name == ROOM:
        what = f'{ROOM}, which thread {other.lwp} drains'
    else:
        what = f'{lock.name}, which thread {other.lwp} holds'
    return {'lwp': thread.lwp, 'function': thread.where(), 'waits_for': what}


def printable(text):
    """On one line, of bounded length, and without what a terminal would obey."""
    text = ''.join(c if c.isprintable() else c.encode('unicode_escape').decode() for c in text)
    if len(text) <= LONGEST_SHOWN:
        return text
    return f'{text[:LONGEST_SHOWN]}... ({len(text)} characters)'


def counted(number, noun):
    return f'{number} {noun}' if number == 1 else f'{number} {noun}s'


def table(header, rows):
    """Lines in columns; the last one is as wide as it is."""
    rows = [header] + [[printable(str(cell)) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(header))]
    return ['  ' + '  '.join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()
            for row in rows]


def summary(data):
    """What stands out in the sections that are shown."""
    lines = []
    if 'locks' in data:
        lines += [f'Deadlock of the threads {", ".join(str(thread["lwp"]) for thread in cycle)}.'
                  for cycle in data['locks']['deadlocks']]
    commands = data.get('commands')
    if commands:
        if commands['full']:
            lines.append('The command queue is full. Threads that wait to add: '
                         f'{len(commands["adding"])}.')
        if commands['waiting'] and not commands['draining']:
            lines.append('Commands wait, and no thread drains.')
        lines += [f'Thread {drain["lwp"]} drains: {drain_named(drain)}.'
                  for drain in commands['draining']]
    if 'threads' in data:
        inside = [record for record in data['threads']['records'] or [] if record['inside']]
        lines += [f'Threads inside monitored work: {len(inside)}, longest '
                  f'{thread_named(record["lwp"])}: {record["elapsed"]:.1f} s.'
                  for record in inside[:1]]
    orphans = sum(log['orphan'] for log in data.get('logs', []))
    if orphans:
        lines.append(f'Orphan logs: {orphans}.')
    return ['  ' + line for line in lines]


def thread_named(lwp):
    return f'thread {lwp}' if lwp else 'a thread that has ended'


def threads_text(data):
    records, others = data['records'], data['others']
    lines = ['Threads with a record: ' + (
        'not readable' if records is None else f'{len(records)}, longest inside first')]
    cells = []
    for record in records or []:
        cells.append([record['lwp'] or 'ended', record['thread'],
                      'inside' if record['inside'] else 'outside', record['since'],
                      f'{record["elapsed"]:.1f} s' if record['inside'] else '-',
                      f'{record["longest"]:.1f} s', record['events'],
                      'OVERDUE' if record['overdue'] else '-',
                      record['function'] or 'the thread has ended'])
    if cells:
        rows = table(['LWP', 'THREAD', 'STATE', 'SINCE', 'ELAPSED', 'LONGEST', 'EVENTS', 'MARK',
                      'FUNCTION'], cells)
        lines.append(rows[0])
        for record, row in zip(records, rows[1:]):
            lines.append(row)
            lines += [f'      {printable(name)}={printable(value)}'
                      for name, value in record['values'].items()]
    if others:
        lines += [f'Threads without a record: {len(others)}']
        lines += table(['LWP', 'FUNCTION'], [[other['lwp'], other['function']] for other in others])
    return lines


def commands_text(data):
    if data is None:
        return ['Commands: the process has not used them']
    lines = [f'Commands: {counted(len(data["waiting"]), "command")} in the queue, '
             f'{data["bytes"]} of {data["limit"]} bytes' + (': full' if data['full'] else '')]
    if data['adding']:
        lines.append(f'  waiting to add: {threads_named(data["adding"])}')
    for drain in data['draining']:
        lines.append(f'  thread {drain["lwp"]} drains: {drain_named(drain)}')
        lines.append(f'      {printable(drain["function"])}')
        if drain['text']:
            lines.append(f'      {printable(drain["text"])}')
    if not data['draining']:
        lines.append('  no thread drains')
    lines += [f'  {number}: {printable(text)}' for number, text in enumerate(data['waiting'], 1)]
    lines.append(f'Handlers: {len(data["handlers"])}')
    if data['handlers']:
        lines += table(['NAME', 'FUNCTION'],
                       [[handler['name'], handler['function']] for handler in data['handlers']])
    return lines


def drain_named(drain):
    command = printable(drain['command'] or 'unknown')
    handler = f'the handler is {drain["handler"]}' if drain['handler'] else 'no handler runs'
    return f'the command is {command}, {handler}'


def threads_named(lwps):
    return ', '.join(f'thread {lwp}' for lwp in lwps)


def logs_text(data):
    orphans = sum(log['orphan'] for log in data)
    lines = [f'Logs: {len(data)}, orphans: {orphans}']
    for log in data:
        lines.append(f'  log {log["handle"]}: {counted(log["references"], "reference")}, '
                     f'{log["extra"]} extra' + (', orphan' if log['orphan'] else ''))
        lines += [f'      "{printable(buffer["name"])}" {buffer["number"]}: {buffer["type"]} '
                  f'at {buffer["address"]}' for buffer in log['buffers']]
    return lines


def locks_text(data):
    lines = [f'Locks: {len(data["locks"])}']
    for lock in data['locks']:
        lines.append(f'  {lock["name"]}: {lock["state"]}' if lock['name'] != ROOM
                     else f'  {lock["name"]}: {counted(len(lock["waiting"]), "thread")} waiting')
        lines += [f'      thread {thread["lwp"]} waits: {printable(thread["function"])}'
                  for thread in lock['waiting']]
    lines.append(f'Lock error texts: {len(data["texts"])}')
    for text in data['texts']:
        whose = '' if text['lwp'] else ', not one of the process'
        lines.append(f'  thread {text["thread"]}{whose}: {printable(text["text"])}')
    for join in data['joins']:
        lines.append(f'Thread {join["lwp"]} waits for thread {join["other"]} to end: '
                     f'{printable(join["function"])}')
    for cycle in data['deadlocks']:
        lines.append(f'Deadlock: {len(cycle)} threads wait for each other')
        for thread in cycle:
            lines += [f'  thread {thread["lwp"]} waits for {thread["waits_for"]}',
                      f'      {printable(thread["function"])}']
    return lines


def timers_text(data):
    if data is None:
        return ["Timers: only the stand-in platform's can be shown"]
    lines = [f'Timers: {len(data)}']
    for timer in data:
        when = 'its event runs' if timer['fires'] else f'due at {timer["due"]:.3f} s of its clock'
        if timer['remaining'] is not None and not timer['fires']:
            when += (f', in {timer["remaining"]:.3f} s' if timer['remaining'] >= 0
                     else f', {-timer["remaining"]:.3f} s ago')
        what = timer['function'] or timer['type']
        lines.append(f'  task manager {timer["manager"]}: {what}, {when}')
    return lines


def text_form(data):
    core = f', its core {data["core"]}' if data['core'] else ''
    lines = [f'Process {data["pid"]}{core}, {data["time"]}'] + summary(data)
    for section in SECTIONS:
        if section in data:
            lines.append('')
            lines += globals()[section + '_text'](data[section])
    return '\n'.join(lines)


# The commands -------------------------------------------------------------------------------------

def run(argument):
    """Shows what the arguments of the command ask for; returns what could not be read."""
    arguments = gdb.string_to_argv(argument)
    as_json = '--json' in arguments
    arguments = [word for word in arguments if word != '--json']
    overdue = None
    try:
        if '--overdue' in arguments:
            place = arguments.index('--overdue')
            overdue = float(arguments[place + 1])
            del arguments[place:place + 2]
        sections = SECTIONS if arguments == ['all'] else tuple(arguments)
        if len(arguments) != 1 or not set(sections) <= set(SECTIONS):
            raise ValueError
    except (IndexError, ValueError):
        raise Failure('wrong arguments: see "help emsutil"') from None
    language = gdb.parameter('language')
    thread = gdb.selected_thread()
    gdb.execute('set language c++', to_string=True)  # a thread that hangs is in a function of C
    try:
        data = Process(overdue).read(sections)
    finally:
        gdb.execute(f'set language {language}', to_string=True)
        if thread is not None and thread.is_valid():
            thread.switch()
    print(json.dumps(data, indent=2) if as_json else text_form(data))
    return data['problems']


class Emsutil(gdb.Command):
    """What libemsutil knows of the process.

    Usage: emsutil threads|commands|logs|locks|timers|all [--overdue SECONDS] [--json]

    threads    the thread monitor's records, longest inside first, then the other threads
    commands   the command queue, the threads that drain it or wait to add, and the handlers
    logs       the transaction logs with their references and buffers
    locks      who holds and who waits for the library's locks; lock error texts; deadlocks
    timers     the pending timers of the stand-in platform's task managers
    all        all of these

    --overdue marks the threads that have been inside for SECONDS or more.
    Nothing is called or changed in the process."""

    def __init__(self):
        super().__init__('emsutil', gdb.COMMAND_STATUS)

    def complete(self, text, word):
        return [name for name in SECTIONS + ('all',) if name.startswith(word)]

    def invoke(self, argument, from_tty):
        self.dont_repeat()
        try:
            for problem in run(argument):
                gdb.write(f'emsutil: {problem}\n', gdb.STDERR)
        except Failure as failure:
            raise gdb.GdbError(f'emsutil: {failure}') from None


Emsutil()


# emsutil-inspect ----------------------------------------------------------------------------------

def inspect():
    """Opens the process or core that emsutil-inspect names in the environment, shows it, and ends
    gdb with the exit status."""
    target = os.environ['EMSUTIL_INSPECT_TARGET']
    status = NOT_READ
    try:
        if target.isdigit():
            attach(int(target))
        else:
            open_core(target, os.environ['EMSUTIL_INSPECT_PROGRAM'])
        problems = run(os.environ['EMSUTIL_INSPECT_COMMAND'])
        for problem in problems:
            complain(problem)
        status = PARTLY_READ if problems else READ
    except Failure as failure:
        complain(failure)
    except OSError as error:
        complain(f'{target}: {error.strerror}')
    except RuntimeError as error:
        complain(f'{target}: {error}')
    except KeyboardInterrupt:
        complain(f'{target}: interrupted')
    if target.isdigit() and gdb.selected_inferior().pid != 0:
        if has_ended(target):
            complain(f'process {target}: it ended while it was read')
            status = NOT_READ
        try:
            gdb.execute('detach', to_string=True)
        except gdb.error:
            pass  # it has ended
    gdb.execute(f'quit {status}')


def complain(text):
    gdb.write(f'emsutil-inspect: {text}\n', gdb.STDERR)


def attach(pid):
    what = f'process {pid}'
    status = process_status(pid)
    if not status:
        raise Failure(f'{what}: there is no such process')
    if has_ended(pid):
        raise Failure(f'{what}: it has ended, and waits for its parent to notice')
    if status['TracerPid'] != '0':
        raise Failure(f'{what}: process {status["TracerPid"]} traces it already')
    pid = int(status['Tgid'])  # where a thread was named
    in_kernel = uninterruptible(pid)
    if in_kernel:
        raise Failure(f'{what}: thread {in_kernel} is in a system call that nothing interrupts '
                      '(state D), and gdb would wait for it: look at the disks and file servers')
    try:
        gdb.execute(f'attach {pid}', to_string=True)
    except gdb.error as error:
        raise Failure(f'{what}: {why_not_attached(status, error)}') from None
    with open(f'/proc/{pid}/maps', encoding='utf-8', errors='surrogateescape') as maps:
        fields = [line.rstrip('\n').split(maxsplit=5) for line in maps]
    for field in fields:
        if len(field) == 6 and int(field[2], 16) == 0 and is_library(field[5]):
            start = int(field[0].split('-')[0], 16)
            path = field[5].removesuffix(' (deleted)')
            check_file(path, f'/proc/{pid}/root{path}',
                       build_id(lambda at, size, start=start: memory(start + at, size), True))


def why_not_attached(status, error):
    if 'not permitted' not in str(error):
        return error
    owner = int(status['Uid'].split()[0])
    if os.geteuid() not in (0, owner):
        return f'not permitted: it belongs to user {owner}: run this as that user or as root'
    try:
        with open('/proc/sys/kernel/yama/ptrace_scope', encoding='ascii') as scope:
            if scope.read().strip() != '0' and os.geteuid() != 0:
                return ('not permitted by /proc/sys/kernel/yama/ptrace_scope: run this as root, or '
                        'have root set it to 0')
    except OSError:
        pass
    return 'not permitted: this needs the capability CAP_SYS_PTRACE, which containers often lack'


def uninterruptible(pid):
    """A thread that stays in a system call that no signal interrupts; None as a rule."""
    staying = None
    for look in range(3):
        time.sleep(0.05 if look else 0)
        found = {lwp for lwp in os.listdir(f'/proc/{pid}/task')
                 if process_status(f'{pid}/task/{lwp}').get('State', '?')[0] == 'D'}
        staying = found if staying is None else staying & found
        if not staying:
            return None
    return min(staying)


def is_library(path):
    return os.path.basename(path).startswith(LIBRARY + '.so')


def check_file(name, path, loaded):
    """Fails unless a file is still the one that was loaded, as far as that can be told."""
    if not os.path.exists(path):
        raise Failure(f'{name}: it is no longer there')
    with open(path, 'rb') as file:
        found = build_id(lambda at, size: read_at(file, at, size), False)
        if loaded is not None and found != loaded:
            raise Failure(f'{name}: it is not the one that the process has loaded, but of another '
                          'version')


def build_id(read, is_loaded):
    """That of an ELF file, from the file or from memory; None if it has none."""
    try:
        headers, first = program_headers(read)
        for kind, offset, address, size in headers:
            if kind == PT_NOTE:
                for note, data in notes(read(address - first if is_loaded else offset, size)):
                    if note == NT_GNU_BUILD_ID:
                        return data.hex()
    except (struct.error, gdb.MemoryError, ValueError):
        pass
    return None


PT_LOAD, PT_NOTE = 1, 4
ET_CORE = 4
NT_GNU_BUILD_ID, NT_AUXV, NT_FILE = 3, 6, 0x46494c45
AT_ENTRY = 9


def program_headers(read):
    """Kind, offset, address and size in the file of each, and the least address that is loaded."""
    header = read(0, 64)
    if header[:6] != b'\x7fELF\x02\x01':
        raise ValueError('it is no ELF file of 64 bits')
    start, = struct.unpack_from('<Q', header, 32)
    size, count = struct.unpack_from('<HH', header, 54)
    data = read(start, size * count)
    headers = []
    for at in range(0, size * count, size):
        kind, _, offset, address, _, length = struct.unpack_from('<IIQQQQ', data, at)
        headers.append((kind, offset, address, length))
    loaded = [address for kind, _, address, _ in headers if kind == PT_LOAD]
    return headers, min(loaded, default=0)


def notes(data):
    """Type and contents of each note."""
    at = 0
    while at + 12 <= len(data):
        name, size, kind = struct.unpack_from('<III', data, at)
        at += 12 + (name + 3) // 4 * 4
        yield kind, data[at:at + size]
        at += (size + 3) // 4 * 4


class CoreFile:
    """What is in a core besides what gdb tells of it."""

    def __init__(self, path):
        self.file = open(path, 'rb')
        self.size = os.fstat(self.file.fileno()).st_size
        try:
            self.headers, _ = program_headers(self._at)
            kind, = struct.unpack('<H', self._at(16, 2))
        except (struct.error, ValueError):
            kind = None
        if kind != ET_CORE:
            raise Failure(f'{path}: it is not a core file, or its beginning is torn')
        self.whole_size = max(offset + size for _, offset, _, size in self.headers)
        self.files = []  # address and path of the beginning of each mapped file
        self.program = None
        entry = None
        for kind, offset, _, size in self.headers:
            for note, data in notes(self._at(offset, size)) if kind == PT_NOTE else ():
                if note == NT_FILE:
                    self._read_files(data)
                elif note == NT_AUXV:
                    pairs = dict(struct.iter_unpack('<QQ', data[:len(data) // 16 * 16]))
                    entry = pairs.get(AT_ENTRY)
        for start, end, _, name in self.files:
            if entry is not None and start <= entry < end:
                self.program = name
        if not self.files and self.size < self.whole_size:
            raise Failure(f'{path}: {self.truncation()}, and all of the threads is cut off')

    def truncation(self):
        """How much is missing, or None."""
        if self.size >= self.whole_size:
            return None
        return f'it is truncated: {self.size} of {self.whole_size} bytes are there'

    def _at(self, offset, size):
        return read_at(self.file, offset, size)

    def _read_files(self, data):
        count, page = struct.unpack_from('<QQ', data)
        names = data[16 + count * 24:].split(b'\0')
        for number in range(count):
            start, end, offset = struct.unpack_from('<QQQ', data, 16 + number * 24)
            self.files.append((start, end, offset * page, os.fsdecode(names[number])))

    def cut_off(self):
        """Start and end of what should be in the core."""
        return [(address, address + size) for kind, offset, address, size in self.headers
                if kind == PT_LOAD and offset + size > self.size]

    def build_id_of(self, path):
        """That of a mapped file, if the core has the beginning of the file."""
        for start, _, offset, name in self.files:
            if name == path and offset == 0:
                return build_id(lambda at, size: self._loaded(start + at, size), True)
        return None

    def _loaded(self, address, size):
        for kind, offset, start, length in self.headers:
            if kind == PT_LOAD and start <= address and address + size <= start + length:
                return self._at(offset + address - start, size)
        raise ValueError('not in the core')


def open_core(path, program):
    core = CoreFile(path)
    name = program or core.program
    if name is None:
        raise Failure(f'{path}: it does not tell its program: give that with --program')
    if not os.path.exists(name):
        raise Failure(f'{name}: the program of {path} is not there: say with --program where it is')
    loaded = core.build_id_of(core.program)
    try:
        check_file(name, name, loaded)
    except Failure:
        raise Failure(f'{name}: it is not the program of {path}, which is {core.program}' + (
            ' in another version' if name == core.program else '')) from None
    for library in {name for _, _, _, name in core.files if is_library(name)}:
        check_file(library, library, core.build_id_of(library))
    gdb.execute('file ' + quoted(name), to_string=True)
    gdb.execute(f'core-file {path}', to_string=True)
    if core.truncation():
        cut_off.extend(core.cut_off())
        if not any(is_library(objfile.filename) for objfile in gdb.objfiles()):
            load_files(core.files)


def load_files(files):
    """Loads the symbols of the files that a core names: gdb finds the libraries by data at the end
    of a core, which a truncated one does not have."""
    mapped_files.extend(files)
    for start, _, offset, name in files:
        if offset == 0 and '.so' in os.path.basename(name) and os.path.exists(name):
            with open(name, 'rb') as file:
                first = program_headers(lambda at, size: read_at(file, at, size))[1]
            gdb.execute(f'add-symbol-file {quoted(name)} -o {start - first}', to_string=True)


def quoted(name):
    """As gdb's commands read a file name."""
    return re.sub(r'([\s\\\'"])', r'\\\1', name)


def read_at(file, offset, size):
    file.seek(offset)
    return file.read(size)
