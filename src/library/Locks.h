// The module's locks. The compiler checks what they guard: data is marked GUARDED_BY its section, and a function that needs a
// section held is marked REQUIRES (clang's thread safety analysis; other compilers see nothing of it). One thread takes locks
// in the order of LockOrder only; a checked build ends the program when one does not.
#pragma once

#include <windows.h>

#ifdef __clang__
#define QC_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define QC_THREAD_ATTRIBUTE(attribute)
#endif
#define CAPABILITY(name) QC_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY QC_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(section) QC_THREAD_ATTRIBUTE(guarded_by(section))
#define ACQUIRE(...) QC_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) QC_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define REQUIRES(...) QC_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS QC_THREAD_ATTRIBUTE(no_thread_safety_analysis)

// Every lock of the module, outermost first. Those up to LockedContent belong to one item, search or file each, and may be held while the
// companion library works, as Prompt while the user thinks. The others guard one process-wide table each, and are held for a look-up
// only, but for two: MountFolders while the companion library lists them, Locks while a locked file is opened or marked for deletion.
enum class LockOrder : unsigned char {
    Item,           // a call on an open item, to its end
    Search,         // a step of a search
    SaveGate,       // saving and moving one container; a move holds two, taken in the order of their paths
    LockedContent,  // content, size and deletion mark of a file that a lock holds open; two only by a move, under its gates
    Prompt,         // a question to the user: one at a time
    MountFolders,
    Locks,
    FindData,
    TempFiles,
    OpenPaths,
    SaveGates,
    SaveCounts,
    OpenItems,
    SearchHandles,
};

// Re-entrant on one thread. Held through a SectionGuard.
class CAPABILITY("critical section") CriticalSection {
public:
    explicit CriticalSection(LockOrder order) : m_order(order) { InitializeCriticalSection(&m_section); }
    ~CriticalSection() { DeleteCriticalSection(&m_section); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter() ACQUIRE() {
        CheckOrder(1);
        EnterCriticalSection(&m_section);
    }
    void Leave() RELEASE() {
        LeaveCriticalSection(&m_section);
        CheckOrder(-1);
    }

private:
#ifdef QUELCRYPT_CHECKED
    // Counts what the thread holds. A lock that comes earlier in LockOrder than one that is held must not be taken.
    void CheckOrder(int change) {
        static constexpr unsigned kOrders = static_cast<unsigned>(LockOrder::SearchHandles) + 1;
        static thread_local int t_held[kOrders];
        const unsigned own = static_cast<unsigned>(m_order);
        for (unsigned inner = own + 1; change > 0 && inner < kOrders; ++inner)
            if (t_held[inner] > 0)
                __builtin_trap();
        t_held[own] += change;
    }
#else
    void CheckOrder(int) {}
#endif

    CRITICAL_SECTION m_section;
    [[maybe_unused]] const LockOrder m_order;
};

class SCOPED_CAPABILITY SectionGuard {
public:
    explicit SectionGuard(CriticalSection& section) ACQUIRE(section) : m_section(section) { section.Enter(); }
    ~SectionGuard() RELEASE() { m_section.Leave(); }
    SectionGuard(const SectionGuard&) = delete;
    SectionGuard& operator=(const SectionGuard&) = delete;

private:
    CriticalSection& m_section;
};
