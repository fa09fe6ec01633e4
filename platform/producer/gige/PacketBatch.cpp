#include "producer/gige/PacketBatch.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

namespace nuvark::gige {

namespace {

constexpr std::size_t kMostMessages = 32;
constexpr std::size_t kLargestMessage = 65536;
constexpr std::size_t kMostLanding = 128; ///< packets of one message that may land
/// So many messages of one packet in a row: the kernel does not put packets together here.
constexpr std::size_t kRunsAreOver = 16;
/// Behind the frame's last packet a trailer and the next leader may wait; what comes then can land again.
constexpr std::size_t kBetweenFrames = 2;
constexpr std::size_t kMostInVain = 8; ///< reads, more are not counted

} // namespace

/// For one recvmmsg call: each message has memory of its own for all its bytes; of a message that may land, the pieces
/// lead elsewhere for its first packets.
struct PacketBatch::Messages {
    struct Control {
        alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(int))];
    };
    struct Message {
        std::array<iovec, 2 * kMostLanding + 1> pieces;
        std::size_t landing = 0;       ///< packets whose data has a place in the frame
        std::uint8_t *begin = nullptr; ///< of the first one's place
        std::size_t headerSize = 0;
        std::size_t dataSize = 0;
        std::size_t landed = 0;      ///< those that are the right ones
        std::size_t size = 0;        ///< bytes
        std::size_t packetBytes = 0; ///< of each packet but the last
        sockaddr_in sender{};
        Control control;
    };

    Messages() : memory(new std::uint8_t[kMostMessages * kLargestMessage]), heads(kMostLanding * kExtendedHeaderSize)
    {
        for (std::size_t i = 0; i < kMostMessages; ++i) {
            msghdr &header = headers[i].msg_hdr;
            header.msg_name = &messages[i].sender;
            header.msg_iov = messages[i].pieces.data();
            header.msg_control = &messages[i].control;
            Divide(i);
        }
    }
    void Lead(std::size_t index, std::uint8_t *begin, std::size_t landing, std::size_t headerSize,
              std::size_t dataSize);
    void Divide(std::size_t index);

    std::uint8_t *MemoryOf(std::size_t index) { return memory.get() + index * kLargestMessage; }
    bool IsCut(std::size_t index) const { return (headers[index].msg_hdr.msg_flags & MSG_TRUNC) != 0; }

    const std::unique_ptr<std::uint8_t[]> memory; ///< no page of it is touched before a message needs it
    std::vector<std::uint8_t> heads;              ///< headers of the packets that land
    std::array<Message, kMostMessages> messages;
    std::array<mmsghdr, kMostMessages> headers{};
};

/// Lets the data of the message's first packets come to where they belong. Mostly only the places have changed.
void PacketBatch::Messages::Lead(std::size_t index, std::uint8_t *begin, std::size_t landing, std::size_t headerSize,
                                 std::size_t dataSize)
{
    Message &message = messages[index];
    const bool isAlike = message.landing == landing && message.headerSize == headerSize && message.dataSize == dataSize;
    if (isAlike && message.begin == begin)
        return;
    message.begin = begin;
    message.landing = landing;
    message.headerSize = headerSize;
    message.dataSize = dataSize;
    if (!isAlike)
        Divide(index);
    for (std::size_t k = 0; k < landing; ++k)
        message.pieces[2 * k + 1] = {begin + k * dataSize, dataSize};
}

/// Into a header and a place for the data of each packet that may land, and memory for the rest.
void PacketBatch::Messages::Divide(std::size_t index)
{
    Message &message = messages[index];
    for (std::size_t k = 0; k < message.landing; ++k)
        message.pieces[2 * k] = {heads.data() + (index + k) * message.headerSize, message.headerSize};
    const std::size_t before = message.landing * (message.headerSize + message.dataSize);
    message.pieces[2 * message.landing] = {MemoryOf(index) + before, kLargestMessage - before};
    headers[index].msg_hdr.msg_iovlen = 2 * message.landing + 1;
}

PacketBatch::PacketBatch(int socket, std::uint32_t camera)
    : m_socket(socket), m_camera(camera), m_messages(std::make_unique<Messages>()), m_sinceRun(kRunsAreOver)
{
}

PacketBatch::~PacketBatch() = default;

PacketBatch::Found PacketBatch::Read(const std::optional<Landing> &landing)
{
    m_packets.clear();
    m_cut = 0;
    const std::size_t wanted = ChooseCount(landing ? landing->packets : 0);
    Prepare(landing, wanted);
    const int got =
        recvmmsg(m_socket, m_messages->headers.data(), static_cast<unsigned>(wanted), MSG_DONTWAIT, nullptr);
    if (got <= 0)
        return Found::Nothing;
    m_withoutLanding = landing ? 0 : std::min(m_withoutLanding + 1, kMostInVain);
    const auto count = static_cast<std::size_t>(got);
    Settle(landing, count);
    for (std::size_t i = 0; i < count; ++i)
        AddPackets(i, landing);
    return count < wanted ? Found::All : Found::Some;
}

/// A message whose packets are put together is long enough for a call of its own; and where it ends is known only
/// afterwards, so that nothing behind it could land.
std::size_t PacketBatch::ChooseCount(std::size_t landingPackets)
{
    const bool hasRuns = m_sinceRun < kRunsAreOver;
    if (landingPackets != 0)
        return hasRuns ? 1 : std::min(kMostMessages, landingPackets + kBetweenFrames);
    // Behind a trailer a leader is to be expected, but the more often in vain, the less likely.
    const std::size_t fewest = hasRuns ? 1 : kBetweenFrames;
    return std::min(kMostMessages, fewest << (std::max(m_withoutLanding, kBetweenFrames) - kBetweenFrames));
}

void PacketBatch::Prepare(const std::optional<Landing> &landing, std::size_t count)
{
    Messages &all = *m_messages;
    const std::size_t packet = landing ? landing->headerSize + landing->dataSize : 0;
    const std::size_t perMessage = landing && count == 1 ? std::min(kMostLanding, kLargestMessage / packet) : 1;
    for (std::size_t i = 0; i < count; ++i) { // several packets land in the only message, or one in each
        if (landing && i < landing->packets)
            all.Lead(i, landing->begin + i * landing->dataSize, std::min(perMessage, landing->packets),
                     landing->headerSize, landing->dataSize);
        else
            all.Lead(i, nullptr, 0, 0, 0);
        msghdr &header = all.headers[i].msg_hdr; // the kernel has written there what came
        header.msg_namelen = sizeof all.messages[i].sender;
        header.msg_controllen = sizeof all.messages[i].control;
    }
}

/// Nothing is placed by hand before all is gathered that is out of its place: it may lie where that one belongs.
void PacketBatch::Settle(const std::optional<Landing> &landing, std::size_t count)
{
    Messages &all = *m_messages;
    bool isExpected = true;
    std::uint32_t firstPacket = landing ? landing->firstPacket : 0;
    for (std::size_t i = 0; i < count; ++i) {
        Messages::Message &message = all.messages[i];
        message.size = all.headers[i].msg_len;
        message.packetBytes = message.size;
        msghdr &header = all.headers[i].msg_hdr;
        for (cmsghdr *c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
            if (c->cmsg_level == SOL_UDP && c->cmsg_type == UDP_GRO) {
                int bytes = 0;
                std::memcpy(&bytes, CMSG_DATA(c), sizeof bytes);
                message.packetBytes = bytes > 0 ? static_cast<std::size_t>(bytes) : message.size;
            }
        }
        m_sinceRun = message.packetBytes < message.size ? 0 : m_sinceRun + 1;
        message.landed = isExpected && message.landing != 0 ? CountLanded(i, *landing, firstPacket) : 0;
        isExpected = message.landed != 0 && message.landed * message.packetBytes == message.size;
        firstPacket += static_cast<std::uint32_t>(message.landed);
        if (!isExpected)
            Gather(i, message.landed * message.packetBytes);
    }
}

std::size_t PacketBatch::CountLanded(std::size_t index, const Landing &landing, std::uint32_t firstPacket)
{
    const Messages::Message &message = m_messages->messages[index];
    const std::size_t packet = landing.headerSize + landing.dataSize;
    if (message.packetBytes != packet || m_messages->IsCut(index) || ntohl(message.sender.sin_addr.s_addr) != m_camera)
        return 0;
    const std::size_t whole = std::min(message.landing, message.size / packet);
    for (std::size_t k = 0; k < whole; ++k) {
        const auto *head = static_cast<const std::uint8_t *>(message.pieces[2 * k].iov_base);
        const std::optional<StreamPacket> parsed = ParseStreamPacket({head, landing.headerSize});
        const bool isExpected = parsed && parsed->status == 0 &&
                                parsed->format == static_cast<std::uint8_t>(PacketFormat::Payload) &&
                                parsed->extendedIds == landing.extendedIds && parsed->blockId == landing.blockId &&
                                parsed->packetId == firstPacket + k && (parsed->flags & kFlagFormerDropped) == 0;
        if (!isExpected)
            return k;
    }
    return whole;
}

/// Brings what lies in the pieces from byte `from` of the message on to where the rest of it is.
void PacketBatch::Gather(std::size_t index, std::size_t from)
{
    const Messages::Message &message = m_messages->messages[index];
    std::uint8_t *memory = m_messages->MemoryOf(index);
    std::size_t at = 0;
    for (std::size_t i = 0; i < 2 * message.landing && at < message.size; ++i) {
        const iovec &piece = message.pieces[i];
        if (at >= from)
            std::memcpy(memory + at, piece.iov_base, std::min(piece.iov_len, message.size - at));
        at += piece.iov_len;
    }
}

void PacketBatch::AddPackets(std::size_t index, const std::optional<Landing> &landing)
{
    const Messages::Message &message = m_messages->messages[index];
    const bool isForeign = ntohl(message.sender.sin_addr.s_addr) != m_camera;
    const bool isCut = m_messages->IsCut(index); // its rest is gone, and its length would teach a wrong packet size
    m_cut += isCut && !isForeign ? 1 : 0;
    if (message.landed != 0) {
        const auto *header = static_cast<const std::uint8_t *>(message.pieces[0].iov_base);
        m_packets.push_back({{header, landing->headerSize}, static_cast<std::uint32_t>(message.landed)});
    }
    const std::uint8_t *memory = m_messages->MemoryOf(index);
    std::size_t at = message.landed * message.packetBytes;
    if (message.size == 0) // no packet, but something that came
        m_packets.push_back({{memory, 0}, 0, isForeign});
    while (at < message.size) {
        const std::size_t size = std::min(message.packetBytes, message.size - at);
        m_packets.push_back({{memory + at, size}, 0, isForeign || isCut});
        at += size;
    }
}

} // namespace nuvark::gige
