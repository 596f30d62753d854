#pragma once

// Finding frames in a stream of bytes. A frame here is "<T" or "<F", 16 hexadecimal digits of
// either case and ">". The checksum may be wrong. This is stricter than the daemon, which looks
// neither at the digits nor at the end until it has collected 19 characters.

#include "command/frame.h"

#include <string>
#include <string_view>
#include <vector>

bool isFrame(std::string_view text);

// The record in a frame. Requires: isFrame(frame).
Rs232Command recordOf(std::string_view frame);

// The checksum that the record should have.
uint8_t rightChecksum(const Rs232Command &record);

bool isReply(std::string_view frame);

// Whether `frame` is an intact reply with the address, tag and code of `command`.
bool isReplyTo(const Rs232Command &command, std::string_view frame);

// A part of the stream: one whole frame, or bytes between frames.
struct Piece {
    bool isFrame;
    std::string text;
};

class FrameFinder {
public:
    // Takes bytes as they arrive and returns, in order, the pieces that they complete. Bytes
    // between frames are held back until a frame, the end of their line or flush() ends them.
    std::vector<Piece> feed(std::string_view bytes);

    // Returns the bytes held back, including an unfinished frame. For use when the line is quiet.
    std::vector<Piece> flush();

    bool holdsBack() const;

private:
    void feed(char byte, std::vector<Piece> &pieces);
    void takeOther(std::vector<Piece> &pieces);

    std::string other_; // bytes that belong to no frame
    std::string begun_; // after them, the beginning of a frame
};
