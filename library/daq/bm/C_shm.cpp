// A handle on a partition: construction, access, release.
#include "C_shm.h"

#include <iostream>

#include <sys/sem.h>
#include <sys/shm.h>

#include "unlocked.h"

using zrk4::impl::word_unlocked;

// A constructor that an exception leaves has no destructor to undo it: its handle must not stay on the chain, nor its
// mapping in the process.
class C_shm::on_chain {
  public:
    explicit on_chain(C_shm& handle) : handle_(&handle) { handle.push_on_chain(); }
    ~on_chain()
    {
        if (handle_ == nullptr) return;
        if (handle_->attached) handle_->detach(mapping::unless_shared);
        handle_->unlink_from_chain();
    }
    on_chain(const on_chain&) = delete;
    on_chain& operator=(const on_chain&) = delete;
    void stay() { handle_ = nullptr; }

  private:
    C_shm* handle_;
};

template <class Search> void C_shm::open(Search search)
{
    on_chain place(*this);
    std::unique_lock guard(mx_cnts);
    if (!search() && access()) {
        add_shmid_entry(ident);
    } else {
        guard.unlock(); // release() takes it itself
        release();
    }
    place.stay();
}

C_shm::C_shm() : shm_error(NotAttached)
{
    on_chain place(*this);
    place.stay();
}

C_shm::C_shm(const char* name)
{
    open([&] { return find(name); });
}

C_shm::C_shm(int shmid)
{
    open([&] { return find(shmid); });
}

C_shm::C_shm(const char* name, int nbuf, int lbuf, bool sems)
{
    on_chain place(*this);
    std::unique_lock guard(mx_cnts);
    if (find(name)) {
        more_sems = sems;
        make(name, nbuf, lbuf);
        access();
        // Whatever became of it: a failed make leaves an entry for the id that it had, which nobody asks for again.
        add_shmid_entry(ident);
    } else {
        const bool has_access = access();
        if (has_access && NBuff >= nbuf && NByte >= lbuf) {
            add_shmid_entry(ident);
        } else {
            if (has_access) {
                deaccess();
                shm_error = IncompatiblePartition;
            }
            guard.unlock();
            release();
        }
    }
    place.stay();
}

C_shm::C_shm(const char* name, int nbuf, int lbuf) : C_shm(name, nbuf, lbuf, false) {}

C_shm::C_shm(C_shm& other) : attached(other.attached)
{
    if (attached) {
        ident = other.ident;
        pointer = other.pointer;
        conptr = other.conptr;
        bufptr = other.bufptr;
        more_sems = other.more_sems;
        if (!access()) {
            release();
            return;
        }
    }
    on_chain place(*this);
    place.stay();
    mLockCount = other.getLockCount();
}

C_shm::~C_shm()
{
    try {
        deaccess();
    } catch (const SysError&) {
        // The set was removed by somebody else's clean-up. The partition is lost, the process need not be.
        accessed = false;
    }
    release();
    unlink_from_chain();
}

bool C_shm::access()
{
    if (!attached || accessed) return false;
    C_shm_global* g = global();
    if (g->version != SHM_LAYOUT_VERSION) {
        shm_error = BadVersion;
        return false;
    }
    while (!gate(true)) {}
    ++g->gbl_count;
    while (!gate(false)) {}
    bufptr = reinterpret_cast<C_shm_buf*>(static_cast<char*>(pointer) + sizeof(C_shm_global));
    conptr = reinterpret_cast<C_shm_consbk*>(bufptr);
    NBuff = g->nbuf;
    NByte = g->lbuf;
    more_sems = g->sems != 0;
    accessed = true;
    return true;
}

void C_shm::deaccess()
{
    if (!accessed) return;
    while (!gate(true)) {}
    --global()->gbl_count;
    while (!gate(false)) {}
    accessed = false;
}

void C_shm::release()
{
    if (!attached) return;
    if (accessed) deaccess();
    // Exactly 0: a count that crashes or a kill made wrong is not mended here. Read without the gate: deliberate.
    if (word_unlocked(&global()->gbl_count) == 0 && !kpflg) {
        semctl(global()->gbl_semid, 0, IPC_RMID);
        const int segment = ident;
        detach(mapping::gone_for_all);
        shmctl(segment, IPC_RMID, nullptr);
        return;
    }
    const std::lock_guard guard(mx_cnts);
    if (rem_shmid_entry(ident) == 0) {
        detach(mapping::unless_shared);
    } else {
        detach(mapping::stays);
    }
}

void C_shm::Zeuss(const char* name)
{
    const std::lock_guard guard(mx_cnts);
    if (attached) {
        std::cerr << "Zeuss: Can't zero user count - partition is attached.\n";
    } else if (!find(name)) {
        global()->gbl_count = 0;
        kpflg = false;
    }
}

const char* C_shm::Error() const
{
    switch (shm_error) {
    case NoError:
        return "No error";
    case NotAttached:
        return "Partition not attached";
    case IncompatiblePartition:
        return "Existing partition is incompatible with request";
    case CantGetSem:
        return "Semaphore doesn't exist";
    case NoFreeID:
        return "No free partition IDs are available";
    case CantAttach:
        return "Unable to attach partition";
    case CantCreate:
        return "Unable to create a new partition";
    case CantCreateSem:
        return "Unable to create a new semaphore";
    case NoPriviledge:
        return "No Priviledge for attempted operation";
    case BadVersion:
        return "Incompatible version number";
    }
    return "Unidentifier error";
}
