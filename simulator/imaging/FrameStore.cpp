#include "simulator/imaging/FrameStore.h"

#include <algorithm>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

namespace orvsim {

namespace {

constexpr std::size_t kFewestFrames = 4;
constexpr int kNiceness = 10;

/// A frame's memory, and which picture it holds.
struct Slot {
    Frame frame;
    std::uint64_t generation = 0; ///< of the settings
    std::size_t place = 0;        ///< in the loop
    int phase = 0;
};

/// The frames that nobody outside holds, and which of them are still to be rendered.
///
/// Whoever has a slot is its only owner; frames that are out come back through Put() when their last holder lets go,
/// even after the store's end. Any thread.
class Shelf {
public:
    explicit Shelf(std::size_t memoryLimitBytes) : m_memoryLimit(memoryLimitBytes) {}

    /// Starts a new loop when the settings are new: frames of the old ones are nothing but memory from now on.
    void Use(const FrameSettings &settings, std::uint64_t number) EXCLUDES(m_mutex);
    /// A rendered frame for that number, while the loop is being filled any one that is ready, in order. Null: render.
    std::unique_ptr<Slot> Pick(std::uint64_t number) EXCLUDES(m_mutex);
    /// An empty slot for the number's own picture, which then counts as ordered.
    std::unique_ptr<Slot> Order(std::uint64_t number) EXCLUDES(m_mutex);
    /// Memory for a copy, which never becomes a frame of the loop. Null when nobody renders the loop: order.
    std::unique_ptr<Slot> Borrow() EXCLUDES(m_mutex);
    /// Waits for a place of the loop that nobody has ordered yet. Null after Close().
    std::unique_ptr<Slot> WaitForOrder() EXCLUDES(m_mutex);
    void Put(std::unique_ptr<Slot> slot) EXCLUDES(m_mutex);

    /// From now on somebody serves WaitForOrder(), until Close().
    void Open() EXCLUDES(m_mutex);
    void Close() EXCLUDES(m_mutex);
    /// Frees everything, and until Open() all that comes back. Who waits for orders goes on waiting.
    void Clear() EXCLUDES(m_mutex);
    std::size_t Bytes() const EXCLUDES(m_mutex);

private:
    struct Place {
        bool isOrdered = false;                   ///< being rendered, ready or out
        std::vector<std::unique_ptr<Slot>> ready; ///< several only where every frame was out once
    };

    std::unique_ptr<Slot> Spare() REQUIRES(m_mutex);
    std::unique_ptr<Slot> Blank(std::size_t place) REQUIRES(m_mutex);
    std::unique_ptr<Slot> PickAt(std::size_t place) REQUIRES(m_mutex);
    /// Drops memory that is far larger than needed, and what exceeds a loop's number of frames.
    void Keep(std::unique_ptr<Slot> slot) REQUIRES(m_mutex);

    const std::size_t m_memoryLimit;
    mutable orv::Mutex m_mutex;
    orv::ConditionVariable m_changed; ///< there may be something to render, or the end has come
    FrameSettings m_settings GUARDED_BY(m_mutex);
    std::uint64_t m_generation GUARDED_BY(m_mutex) = 0;
    std::vector<Place> m_loop GUARDED_BY(m_mutex); ///< empty: no settings yet
    std::vector<std::unique_ptr<Slot>> m_spare GUARDED_BY(m_mutex);
    std::size_t m_next GUARDED_BY(m_mutex) = 0;  ///< place where the search for something to render starts
    std::size_t m_shown GUARDED_BY(m_mutex) = 0; ///< place of the frame that was picked last
    bool m_isOpen GUARDED_BY(m_mutex) = false;
    bool m_isCleared GUARDED_BY(m_mutex) = false; ///< nothing is ordered or kept
};

void Shelf::Use(const FrameSettings &settings, std::uint64_t number)
{
    const orv::MutexLock lock(m_mutex);
    if (!m_loop.empty() && settings == m_settings)
        return;
    std::vector<Place> old = std::move(m_loop);
    m_settings = settings;
    ++m_generation;
    const std::size_t bytes = std::max<std::size_t>(1, ImageBytes(settings));
    m_loop = std::vector<Place>(std::clamp<std::size_t>(m_memoryLimit / bytes, kFewestFrames, kScenePhases));
    m_next = (number + 1) % m_loop.size(); // the frame of this number is its caller's business
    for (Place &place : old) {
        for (std::unique_ptr<Slot> &slot : place.ready)
            Keep(std::move(slot));
    }
    m_changed.NotifyAll();
}

std::unique_ptr<Slot> Shelf::PickAt(std::size_t place)
{
    std::vector<std::unique_ptr<Slot>> &ready = m_loop[place].ready;
    if (ready.empty())
        return nullptr;
    std::unique_ptr<Slot> slot = std::move(ready.back());
    ready.pop_back();
    m_shown = place;
    return slot;
}

std::unique_ptr<Slot> Shelf::Pick(std::uint64_t number)
{
    const orv::MutexLock lock(m_mutex);
    std::unique_ptr<Slot> slot = PickAt(number % m_loop.size());
    for (std::size_t i = 1; m_isOpen && slot == nullptr && i <= m_loop.size(); ++i)
        slot = PickAt((m_shown + i) % m_loop.size());
    return slot;
}

std::unique_ptr<Slot> Shelf::Spare()
{
    if (m_spare.empty())
        return std::make_unique<Slot>();
    std::unique_ptr<Slot> slot = std::move(m_spare.back());
    m_spare.pop_back();
    return slot;
}

std::unique_ptr<Slot> Shelf::Borrow()
{
    const orv::MutexLock lock(m_mutex);
    if (!m_isOpen || m_isCleared)
        return nullptr;
    std::unique_ptr<Slot> slot = Spare();
    slot->generation = 0; // of no settings
    slot->frame.settings = m_settings;
    return slot;
}

std::unique_ptr<Slot> Shelf::Blank(std::size_t place)
{
    std::unique_ptr<Slot> slot = Spare();
    m_loop[place].isOrdered = true;
    slot->generation = m_generation;
    slot->place = place;
    slot->phase = static_cast<int>(place * kScenePhases / m_loop.size());
    slot->frame.settings = m_settings;
    return slot;
}

std::unique_ptr<Slot> Shelf::Order(std::uint64_t number)
{
    const orv::MutexLock lock(m_mutex);
    m_shown = number % m_loop.size();
    return Blank(m_shown);
}

std::unique_ptr<Slot> Shelf::WaitForOrder()
{
    const orv::MutexLock lock(m_mutex);
    while (m_isOpen) {
        for (std::size_t i = 0; !m_isCleared && i < m_loop.size(); ++i) {
            const std::size_t place = (m_next + i) % m_loop.size();
            if (!m_loop[place].isOrdered)
                return Blank(place);
        }
        m_changed.Wait(m_mutex);
    }
    return nullptr;
}

void Shelf::Put(std::unique_ptr<Slot> slot)
{
    const orv::MutexLock lock(m_mutex);
    if (m_isCleared)
        return;
    if (slot->generation == m_generation)
        m_loop[slot->place].ready.push_back(std::move(slot));
    else
        Keep(std::move(slot));
}

void Shelf::Keep(std::unique_ptr<Slot> slot)
{
    constexpr std::size_t kChunkRoom = 4096;
    const std::size_t needed = ImageBytes(m_settings) + kChunkRoom;
    if (m_spare.size() < m_loop.size() && slot->frame.payload.capacity() <= 2 * needed)
        m_spare.push_back(std::move(slot));
}

void Shelf::Open()
{
    const orv::MutexLock lock(m_mutex);
    m_isOpen = true;
    if (std::exchange(m_isCleared, false)) {
        m_loop.clear(); // of frames that were rendered for once; when they come back they are memory
        ++m_generation;
    }
    m_changed.NotifyAll();
}

void Shelf::Close()
{
    const orv::MutexLock lock(m_mutex);
    m_isOpen = false;
    m_changed.NotifyAll();
}

void Shelf::Clear()
{
    std::vector<Place> loop; // freed without the mutex
    std::vector<std::unique_ptr<Slot>> spare;
    const orv::MutexLock lock(m_mutex);
    loop.swap(m_loop);
    spare.swap(m_spare);
    ++m_generation;
    m_isCleared = true;
}

std::size_t Shelf::Bytes() const
{
    const orv::MutexLock lock(m_mutex);
    std::size_t bytes = 0;
    for (const std::unique_ptr<Slot> &slot : m_spare)
        bytes += slot->frame.payload.capacity();
    for (const Place &place : m_loop) {
        for (const std::unique_ptr<Slot> &slot : place.ready)
            bytes += slot->frame.payload.capacity();
    }
    return bytes;
}

void RenderInto(Slot &slot, FrameRenderer &renderer)
{
    Frame &frame = slot.frame;
    frame.imageBytes = ImageBytes(frame.settings);
    frame.payload.resize(frame.imageBytes);
    renderer.Render(frame.settings, slot.phase, frame.payload.data());
}

/// A copy of the frame that was given last, while somebody holds it. Null when it does not serve.
std::unique_ptr<Slot> CopyOf(const std::shared_ptr<Frame> &last, const FrameSettings &settings, Shelf &shelf)
{
    if (last == nullptr || last->settings != settings)
        return nullptr;
    std::unique_ptr<Slot> slot = shelf.Borrow();
    if (slot == nullptr)
        return nullptr;
    slot->frame.imageBytes = last->imageBytes;
    slot->frame.payload.assign(last->payload.begin(),
                               last->payload.begin() + static_cast<std::ptrdiff_t>(last->imageBytes));
    return slot;
}

} // namespace

struct FrameStore::Parts {
    Parts(const SensorTraits &sensor, std::uint64_t seed, std::size_t memoryLimitBytes)
        : shelf(std::make_shared<Shelf>(memoryLimitBytes)), takers(sensor, seed), background(takers)
    {
    }

    const std::shared_ptr<Shelf> shelf; ///< shared with the frames that are out
    FrameRenderer takers;               ///< for the thread of Take() only
    std::weak_ptr<Frame> last;          ///< that Take() gave; its thread's
    FrameRenderer background;           ///< for the store's thread only
    orv::Mutex control;                 ///< Start() and Stop() one at a time
    std::thread thread GUARDED_BY(control);
};

FrameStore::FrameStore(const SensorTraits &sensor, std::uint64_t seed, std::size_t memoryLimitBytes)
    : m_parts(std::make_unique<Parts>(sensor, seed, memoryLimitBytes))
{
}

FrameStore::~FrameStore()
{
    Stop();
}

std::shared_ptr<Frame> FrameStore::Take(const FrameSettings &settings, std::uint64_t number, std::uint64_t timestampNs)
{
    const std::shared_ptr<Shelf> &shelf = m_parts->shelf;
    shelf->Use(settings, number);
    std::unique_ptr<Slot> slot = shelf->Pick(number);
    if (slot == nullptr)
        slot = CopyOf(m_parts->last.lock(), settings, *shelf);
    if (slot == nullptr) {
        slot = shelf->Order(number);
        RenderInto(*slot, m_parts->takers);
    }
    Frame &frame = slot->frame;
    frame.payload.resize(frame.imageBytes); // without what was added at its last use
    frame.hasChunks = false;
    frame.confidenceBytes = 0;
    frame.number = number;
    frame.timestampNs = timestampNs;
    m_parts->takers.Stamp(settings, number, timestampNs, frame.payload.data());

    Slot *const out = slot.release();
    const std::shared_ptr<Frame> taken(&out->frame, [shelf, out](Frame *) { shelf->Put(std::unique_ptr<Slot>(out)); });
    m_parts->last = taken;
    return taken;
}

void FrameStore::Start()
{
    const orv::MutexLock lock(m_parts->control);
    m_parts->shelf->Open();
    if (m_parts->thread.joinable())
        return;
    m_parts->thread = std::thread([shelf = m_parts->shelf, renderer = &m_parts->background] {
        // Of this thread alone. Whoever sends frames comes first when there are few processors.
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
        while (std::unique_ptr<Slot> slot = shelf->WaitForOrder()) {
            RenderInto(*slot, *renderer);
            shelf->Put(std::move(slot));
        }
    });
}

void FrameStore::Release()
{
    m_parts->shelf->Clear();
}

std::size_t FrameStore::PreparedBytes() const
{
    return m_parts->shelf->Bytes();
}

void FrameStore::Stop()
{
    const orv::MutexLock lock(m_parts->control);
    m_parts->shelf->Close();
    if (m_parts->thread.joinable())
        m_parts->thread.join();
}

} // namespace orvsim
