#include "tools/frames.h"

#include "tools/text.h"

namespace {

// A longer line of bytes between frames is returned in parts.
constexpr size_t kLongestOther = 256;

bool fitsAt(size_t offset, char character)
{
    if (offset == 0) {
        return character == CommandToLEDHeader[0];
    }
    if (offset < kFrameHeaderLength) {
        return character == CommandToLEDHeader[offset] || character == CommandFromLEDHeader[offset];
    }
    if (offset < kFrameEndOffset) {
        return isHexDigit(character);
    }
    return offset == kFrameEndOffset && character == CommandEnd[0];
}

} // namespace

bool isFrame(std::string_view text)
{
    if (text.size() != kFrameLength) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (!fitsAt(i, text[i])) {
            return false;
        }
    }
    return true;
}

Rs232Command recordOf(std::string_view frame)
{
    Rs232Command record;
    StrToRs232Command(frame.data(), &record);
    return record;
}

// CheckSum() of the codec is of no use here: it prints on standard output, which is for data.
uint8_t rightChecksum(const Rs232Command &record)
{
    Rs232Command summed = record;
    SetCheckSum(&summed);
    return summed.checksum;
}

bool isReply(std::string_view frame)
{
    return frame.substr(0, kFrameHeaderLength) == CommandFromLEDHeader;
}

bool isReplyTo(const Rs232Command &command, std::string_view frame)
{
    const Rs232Command reply = recordOf(frame);
    return isReply(frame) && reply.checksum == rightChecksum(reply) &&
           reply.address == command.address && reply.tag == command.tag &&
           reply.command == command.command;
}

std::vector<Piece> FrameFinder::feed(std::string_view bytes)
{
    std::vector<Piece> pieces;
    for (const char byte : bytes) {
        feed(byte, pieces);
    }
    return pieces;
}

std::vector<Piece> FrameFinder::flush()
{
    std::vector<Piece> pieces;
    other_ += begun_;
    begun_.clear();
    takeOther(pieces);
    return pieces;
}

bool FrameFinder::holdsBack() const
{
    return !other_.empty() || !begun_.empty();
}

void FrameFinder::feed(char byte, std::vector<Piece> &pieces)
{
    if (!fitsAt(begun_.size(), byte)) {
        other_ += begun_;
        begun_.clear();
    }
    if (fitsAt(begun_.size(), byte)) {
        begun_ += byte;
    } else {
        other_ += byte;
    }
    if (begun_.size() == kFrameLength) {
        takeOther(pieces);
        pieces.push_back({true, begun_});
        begun_.clear();
    } else if (other_.size() >= kLongestOther || (!other_.empty() && other_.back() == '\n')) {
        takeOther(pieces);
    }
}

void FrameFinder::takeOther(std::vector<Piece> &pieces)
{
    if (!other_.empty()) {
        pieces.push_back({false, other_});
        other_.clear();
    }
}
