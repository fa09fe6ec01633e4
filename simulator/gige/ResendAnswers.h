#pragma once

#include "base/Mutex.h"
#include "simulator/gige/BlockSender.h"
#include "simulator/gige/FrameHistory.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <thread>

namespace orvsim {

/// Answers requests for lost packets, from the history and on a thread of its own.
///
/// A packet that is gone or never was is refused with its id, one that is still to come is put off; a request gets no
/// more packets than its block has, and at most kMostRefusals refusals.
///
/// Threads: Push() from any; Start() and Stop() from the owner's.
/// Full: a request that finds 256 others waiting is dropped; the host asks again.
class ResendAnswers {
public:
    /// \param order  where answers go now, on the answering thread; a receiver with port 0: nowhere
    ResendAnswers(SendPort &port, const FrameHistory &history, std::uint64_t seed,
                  std::function<SendOrder(const Endpoint &requester)> order);
    ~ResendAnswers();

    void Start() EXCLUDES(m_mutex);
    /// Drops what waits, then joins.
    void Stop() EXCLUDES(m_mutex);
    void Push(const ResendRequest &request, const Endpoint &requester) EXCLUDES(m_mutex);

private:
    struct Entry {
        ResendRequest request;
        Endpoint requester;
    };

    void Run() EXCLUDES(m_mutex);
    void Answer(const Entry &entry);
    void AnswerFrom(SentBlock &sent, const ResendRequest &request, const SendOrder &order);
    void Refuse(const ResendRequest &request, std::uint16_t status, const SendOrder &order);

    SendPort &m_port;
    const FrameHistory &m_history;
    const std::function<SendOrder(const Endpoint &)> m_order;
    BlockSender m_sender; // answering thread
    orv::Mutex m_mutex;
    orv::ConditionVariable m_changed;
    std::deque<Entry> m_waiting GUARDED_BY(m_mutex);
    bool m_isStopping GUARDED_BY(m_mutex) = false;
    std::thread m_thread;
};

} // namespace orvsim
