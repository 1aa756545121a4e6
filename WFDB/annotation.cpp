#include "WFDB/annotation.h"

#include "platform/LastError.h"
#include "WFDB/Ownership.h"
#include "WFDB/stdafx.h"
#include "WFDB/Utils.h"

#include <algorithm>
#include <cstring>

uint16_t g_iAnnotationWord = 0;
uint32_t g_iAnnotationTime = 0;
uint16_t g_iAnnotationChannel = 0;
uint16_t g_iAnnotationNumber = 0;

namespace {

// A file is a sequence of little-endian words: a code in the upper 6 bits, a value in the lower 10.
// Codes below kSkip are annotations, whose value is the time since the one before; the codes from
// kSkip on qualify the annotation that they follow.
enum Code : uint8_t { kSkip = 59, kNumber = 60, kSubType = 61, kChannel = 62, kAuxText = 63 };

constexpr uint16_t kEndWord = 0;

uint8_t CodeOf(uint16_t word) {
    return static_cast<uint8_t>(word >> 10);
}

uint16_t ValueOf(uint16_t word) {
    return word & 0x3FF;
}

// Words and texts are read where they lie in the stream's buffer, which nearly all of them do: a
// call of the C library takes longer than the annotation itself.

#ifdef __GLIBC__

// The next `count` bytes of the stream if its buffer holds them all, else null.
const char* PeekBuffer(const FILE* file, size_t count) {
    const auto available = static_cast<size_t>(file->_IO_read_end - file->_IO_read_ptr);
    return available >= count ? file->_IO_read_ptr : nullptr;
}

void SkipBuffer(FILE* file, size_t count) {
    file->_IO_read_ptr += count;
}

#else

const char* PeekBuffer(const FILE*, size_t) {
    return nullptr;
}

void SkipBuffer(FILE*, size_t) {}

#endif

// Leaves `word` as it is when the file ends.
bool ReadWord(FILE* file, uint16_t& word) {
    const int low = getc_unlocked(file);
    const int high = getc_unlocked(file);
    if ((low | high) < 0) {
        return false;
    }
    word = static_cast<uint16_t>(low | high << 8);
    return true;
}

// The 32-bit interval of a SKIP has its upper word first, as the PDP-11 stored it.
bool ReadInterval(FILE* file, uint32_t& interval) {
    uint16_t upper = 0;
    uint16_t lower = 0;
    if (!ReadWord(file, upper) || !ReadWord(file, lower)) {
        return false;
    }
    interval = static_cast<uint32_t>(upper) << 16 | lower;
    return true;
}

// The next `count` bytes of the stream, in its buffer or else in `storage`; null when the file ends
// within them.
const char* ReadBytes(FILE* file, size_t count, char* storage) {
    if (const char* bytes = PeekBuffer(file, count)) {
        SkipBuffer(file, count);
        return bytes;
    }
    return fread_unlocked(storage, 1, count, file) == count ? storage : nullptr;
}

// Text of an odd length is followed by a pad byte, which is taken as part of the text.  An empty
// text counts as a failed read.
bool ReadAuxText(FILE* file, uint16_t word, WFDB_ANNOTATION* out) {
    char storage[256];
    const size_t length = ((word & 0xFFU) + 1) & ~size_t{1};
    const char* text = ReadBytes(file, length, storage);
    if (length == 0 || text == nullptr) {
        return false;
    }
    std::memset(out->AuxText, 0, sizeof(out->AuxText));
    std::memcpy(out->AuxText, text, std::min(length, sizeof(out->AuxText) - 1));
    return true;
}

// Applies a word with a code of kSkip or above; false when the file ends within it.  Kept out of
// line: most annotations have no qualifier, and without its registers they are read a quarter
// faster.
[[gnu::noinline]] bool ReadQualifier(FILE* file, uint16_t word, WFDB_ANNOTATION* out) {
    switch (CodeOf(word)) {
    case kNumber:
        g_iAnnotationNumber = ValueOf(word);
        out->Number = g_iAnnotationNumber;
        return true;
    case kSubType:
        out->SubType = ValueOf(word);
        return true;
    case kChannel:
        g_iAnnotationChannel = ValueOf(word);
        out->Channel = g_iAnnotationChannel;
        return true;
    case kAuxText:
        return ReadAuxText(file, word, out);
    default: {
        uint32_t interval = 0;
        if (!ReadInterval(file, interval)) {
            return false;
        }
        g_iAnnotationTime += interval;
        return true;
    }
    }
}

void BeginAnnotation(WFDB_ANNOTATION* out) {
    g_iAnnotationTime += ValueOf(g_iAnnotationWord);
    *out = {};
    out->Type = CodeOf(g_iAnnotationWord);
    out->Time = g_iAnnotationTime;
    out->Number = g_iAnnotationNumber;
    out->Channel = g_iAnnotationChannel;
}

// States why no annotation can be read at this position.
[[gnu::noinline]] int RefuseAnnotation(const WFDB_HEADER* header, const WFDB_ANNOTATION* out) {
    if (header == nullptr || out == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no record header or no annotation is given");
    } else if (GetAnnotationFile(header) == nullptr) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "record %.255s: no annotation file is open",
                       header->RecordName);
    } else {
        SetLastFailure(RAVO_ERROR_END, "record %.255s: end of the annotations", header->RecordName);
    }
    return 0;
}

[[gnu::noinline]] int EndWithoutMark(const WFDB_HEADER* header) {
    SetLastFailure(RAVO_ERROR_FORMAT, "record %.255s: the annotation file ends without an end mark",
                   header->RecordName);
    return 0;
}

// Reads on to the next annotation and applies the words before it, which qualify this one.
[[gnu::noinline]] int FinishAnnotation(const WFDB_HEADER* header, WFDB_ANNOTATION* out) {
    FILE* file = GetAnnotationFile(header);
    uint16_t word = 0;
    bool isRead = ReadWord(file, word);
    while (isRead && CodeOf(word) >= kSkip) {
        isRead = ReadQualifier(file, word, out) && ReadWord(file, word);
    }
    if (!isRead) {
        return EndWithoutMark(header);
    }
    g_iAnnotationWord = word;
    return 1;
}

// Takes the next word if the stream's buffer holds it and it begins an annotation, as nearly every
// word does.
bool TakeBufferedAnnotation(FILE* file) {
    const char* bytes = PeekBuffer(file, 2);
    if (bytes == nullptr) {
        return false;
    }
    const auto low = static_cast<uint8_t>(bytes[0]);
    const auto high = static_cast<uint8_t>(bytes[1]);
    const auto word = static_cast<uint16_t>(low | high << 8);
    if (CodeOf(word) >= kSkip) {
        return false;
    }
    g_iAnnotationWord = word;
    SkipBuffer(file, 2);
    return true;
}

} // namespace

int WFDBLoadAnnotation(const char* path, WFDB_HEADER* header) {
    if (header == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no record header is given");
        return 0;
    }
    OwnedFile file(OpenOrdinaryFile(path));
    if (file == nullptr) {
        return 0;
    }
    const OwnedFile earlierFile(GetAnnotationFile(header));
    SetAnnotationFile(header, nullptr);
    if (!ReadWord(file.get(), g_iAnnotationWord)) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: holds no annotation word", path);
        return 0;
    }
    SetAnnotationFile(header, file.release());
    g_iAnnotationTime = 0;
    g_iAnnotationChannel = 0;
    g_iAnnotationNumber = 0;
    return 1;
}

int WFDBNextAnnotation(WFDB_HEADER* header, WFDB_ANNOTATION* out) {
    FILE* file = GetAnnotationFile(header);
    if (file == nullptr || out == nullptr || g_iAnnotationWord == kEndWord) {
        return RefuseAnnotation(header, out);
    }
    BeginAnnotation(out);
    return TakeBufferedAnnotation(file) ? 1 : FinishAnnotation(header, out);
}

// Channel and number keep their values: a second pass over the file begins with those that the
// first one ended with.
void WFDBAnnotationSeekBegin(WFDB_HEADER* header) {
    FILE* file = GetAnnotationFile(header);
    if (file == nullptr) {
        return;
    }
    std::fseek(file, 0, SEEK_SET);
    ReadWord(file, g_iAnnotationWord);
    g_iAnnotationTime = 0;
}
