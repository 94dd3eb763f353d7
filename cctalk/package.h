#pragma once

#include "cctalk/header.h"

#include <QByteArray>
#include <QString>

namespace CcTalk {

// The host's bus address (the source of its frames, the destination of answers) and the
// address every device on the bus takes as its own.
const unsigned char hostAddress = 1;
const unsigned char broadcastAddress = 0;
// A frame's bytes besides its data (destination, length, source, header, checksum), and
// the most a frame may have.
const int frameOverhead = 5;
const int maxFrameBytes = 255;

// One ccTalk frame: [dest][data length][src][header][data...][checksum].
class Package
{
public:
    Package();
    virtual ~Package();

    void assign(const Package& other);

    Header::Type getHeader() const;
    bool operator==(const Package& other) const;

    // The frame bytes, checksum included.
    operator QByteArray() const;

    // Takes the first frame of the bytes; the checksum is not checked here.
    void setRawData(const QByteArray& raw);

    // Two's complement of the 8-bit sum of the first k bytes, k being the low byte of
    // the array size read as a signed number; 0 when k is not 1 to 127. A whole frame
    // with a correct checksum yields 0.
    unsigned char calkCrc(const QByteArray& bytes) const;

    // "key (value)" of the header.
    QString getName() const;
    QString toLog() const;

    unsigned char getDestination() const { return dest; }
    unsigned char getSource() const { return src; }
    const QByteArray& getData() const { return data; }

protected:
    // Requests reach the bus device as const references and are addressed there.
    mutable unsigned char dest;
    unsigned char src;
    // Type's underlying type is the compiler's choice; the code is kept as a signed integer.
    qint32 header;
    QByteArray data;
};

// How many data bytes an answer may carry: exactly n, at least n (texts, answers a
// device may extend), or any number.
class AnswerLength
{
public:
    static constexpr AnswerLength any() { return AnswerLength(0, -1); }
    static constexpr AnswerLength exactly(int n) { return AnswerLength(n, n); }
    static constexpr AnswerLength atLeast(int n) { return AnswerLength(n, -1); }

    int minimum() const { return least; }
    // -1 when there is no upper bound.
    int maximum() const { return most; }
    bool fits(int size) const { return size >= least && (most < 0 || size <= most); }
    bool operator==(const AnswerLength& other) const { return least == other.least && most == other.most; }
    bool operator!=(const AnswerLength& other) const { return !(*this == other); }
    // "8" or "не менее 2", for the log.
    QString toLog() const;

private:
    constexpr AnswerLength(int minimum, int maximum) : least(minimum), most(maximum) {}

    int least;
    int most;
};

// A frame the host sends.
class Request : public Package
{
public:
    Request();
    Request(Header::Type type, const QByteArray& bytes, AnswerLength answer = AnswerLength::any());
    ~Request() override;

    // The data length a well-formed answer to this request has; the bus device treats
    // any other as a spoilt answer.
    AnswerLength answerLength() const { return answer; }

    void setAddress(unsigned char address) const;

    // Writes count bytes of value little-endian from position pos, growing the data.
    void setUint(unsigned int value, int pos, int count);

    // False for commands whose repetition could pay out twice.
    virtual bool canBeSentAgain() const;

private:
    AnswerLength answer = AnswerLength::any();
};

// A frame the host receives, assembled from whatever pieces the line delivers.
class Response : public Package
{
public:
    Response();
    Response(const Response& other);
    Response& operator=(const Response& other);
    ~Response() override;

    // Appends received bytes and completes on the first frame addressed to the host
    // (destination 1) from the expected device whose bytes sum to 0 modulo 256. The
    // host's own echo (source 1) is skipped, other stations' frames are skipped and
    // counted, and bytes that start no such frame are dropped one at a time.
    void addRawData(const QByteArray& raw);

    // Only frames from this source complete the answer; without it any source but
    // the host's own does.
    void expectFrom(unsigned char address);

    // What the assembly threw away so far: checksum-correct frames of other stations,
    // and bytes dropped while resynchronising.
    int foreignFrames() const { return foreign; }
    int droppedBytes() const { return dropped; }

    bool isValid() const;
    bool isNAK() const;
    bool isBUSY() const;

    // Little-endian number from the data; a field running past the end is shortened.
    unsigned int getUint(int pos, int count) const;
    // Data byte at index; 0 outside the data.
    unsigned char getByte(int index) const;

    // The data bytes only.
    operator QByteArray() const;

    // Canned answer from hexadecimal frame text, marked valid without a checksum test.
    static Response fromHex(const QString& text);

protected:
    QByteArray buffer;
    bool valid;

private:
    int expectedSource = -1;
    int foreign = 0;
    int dropped = 0;
};

} // namespace CcTalk
