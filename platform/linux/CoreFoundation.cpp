// CoreFoundation.cpp - objects with retain and release, strings and dictionaries.
//
// A string is kept as UTF-8, whatever it was made from. A dictionary is a list of pairs: those in
// use have one or two. The framework's run loop stands in RunLoop.cpp.

#include "Runtime.h"

#include "Encodings.h"

#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

// ---- Objects ----

const CFAllocatorRef kCFAllocatorDefault = nullptr;

void *NewObject(const ObjectType *type, size_t size)
{
    Object *object = static_cast<Object *>(calloc(1, size));
    if (object == nullptr)
        return nullptr;
    object->type = type;
    object->references = 1;
    return object;
}

void Complain(const char *function, const char *format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    const int begun = snprintf(line, sizeof line, "%s: ", function);
    vsnprintf(line + begun, sizeof line - static_cast<size_t>(begun), format, arguments);
    va_end(arguments);
    dprintf(STDERR_FILENO, "%s\n", line);
}

[[noreturn]] void HaltAtNull(const char *function)
{
    Complain(function, "called with null");
    abort();
}

// The references are no part of what const protects.
static Object *ObjectOf(CFTypeRef cf)
{
    return static_cast<Object *>(const_cast<void *>(cf));
}

CFTypeRef CFRetain(CFTypeRef cf)
{
    Object *object = ObjectOf(cf);
    if (object == nullptr)
        HaltAtNull("CFRetain");
    if (object->references != kImmortal)
        object->references++;
    return cf;
}

void CFRelease(CFTypeRef cf)
{
    Object *object = ObjectOf(cf);
    if (object == nullptr)
        HaltAtNull("CFRelease");
    if (object->references == kImmortal)
        return;
    if (--object->references > 0)
        return;
    object->type->destroy(object);
}

CFIndex CFGetRetainCount(CFTypeRef cf)
{
    const Object *object = ObjectOf(cf);
    if (object == nullptr)
        HaltAtNull("CFGetRetainCount");
    return object->references == kImmortal ? LONG_MAX : object->references;
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2)
{
    const Object *left = ObjectOf(cf1);
    const Object *right = ObjectOf(cf2);
    if (left == nullptr || right == nullptr)
        HaltAtNull("CFEqual");
    if (left == right)
        return true;
    if (left->type != right->type)
        return false;
    return left->type->equal != nullptr && left->type->equal(left, right);
}

CFHashCode CFHash(CFTypeRef cf)
{
    const Object *object = ObjectOf(cf);
    if (object == nullptr)
        HaltAtNull("CFHash");
    if (object->type->hash != nullptr)
        return object->type->hash(object);
    return reinterpret_cast<CFHashCode>(cf);
}

// ---- Strings ----

static void DestroyMemory(Object *object)
{
    free(object);
}

static bool StringsAreEqual(const Object *left, const Object *right)
{
    const __CFString *one = reinterpret_cast<const __CFString *>(left);
    const __CFString *other = reinterpret_cast<const __CFString *>(right);
    return one->length == other->length && memcmp(one->text, other->text, one->length) == 0;
}

static CFHashCode StringHash(const Object *object)
{
    const __CFString *string = reinterpret_cast<const __CFString *>(object);
    CFHashCode hash = 5381;
    for (size_t i = 0; i < string->length; i++)
        hash = hash * 33 + static_cast<unsigned char>(string->text[i]);
    return hash;
}

const ObjectType kStringType = {DestroyMemory, StringsAreEqual, StringHash};

// A string whose text, of `length` bytes, the caller writes to *text.
static __CFString *NewString(size_t length, char **text)
{
    __CFString *string = static_cast<__CFString *>(
        NewObject(&kStringType, sizeof(__CFString) + length + sizeof(char)));
    if (string == nullptr)
        return nullptr;
    *text = reinterpret_cast<char *>(string + 1);
    string->length = length;
    string->text = *text;
    return string;
}

static __CFString *StringOfUtf8(const char *utf8)
{
    const size_t length = strlen(utf8);
    if (!IsUtf8(utf8, length))
        return nullptr;
    char *text = nullptr;
    __CFString *string = NewString(length, &text);
    if (string != nullptr)
        memcpy(text, utf8, length + 1);
    return string;
}

static __CFString *StringOfMacRoman(const char *bytes)
{
    char character[kUtf8Max];
    size_t length = 0;
    for (const char *byte = bytes; *byte != '\0'; byte++)
        length += PutUtf8(MacRomanCodePoint(static_cast<unsigned char>(*byte)), character);
    char *text = nullptr;
    __CFString *string = NewString(length, &text);
    if (string == nullptr)
        return nullptr;
    for (const char *byte = bytes; *byte != '\0'; byte++)
        text += PutUtf8(MacRomanCodePoint(static_cast<unsigned char>(*byte)), text);
    return string;
}

const char *StringText(CFStringRef string)
{
    return string->text;
}

CFStringRef CreateString(const char *utf8)
{
    return StringOfUtf8(utf8);
}

// In front of UTF-8 it is no part of the text.
static constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

CFStringRef CFStringCreateWithCString(CFAllocatorRef /*alloc*/, const char *cStr,
                                      CFStringEncoding encoding)
{
    if (cStr == nullptr)
        HaltAtNull("CFStringCreateWithCString");
    if (encoding == kCFStringEncodingUTF8)
        return StringOfUtf8(strncmp(cStr, kByteOrderMark, strlen(kByteOrderMark)) == 0
                                ? cStr + strlen(kByteOrderMark)
                                : cStr);
    if (encoding == kCFStringEncodingMacRoman)
        return StringOfMacRoman(cStr);
    return nullptr;
}

// The constant strings made so far. There are as many as the program has literals.
struct ConstantString {
    ConstantString *next;
    __CFString *string;
};
static ConstantString *g_constants = nullptr;

CFStringRef __CFStringMakeConstantString(const char *cStr)
{
    __CFString *string = cStr == nullptr ? nullptr : StringOfMacRoman(cStr);
    if (string == nullptr)
        return nullptr;
    for (const ConstantString *known = g_constants; known != nullptr; known = known->next) {
        if (!StringsAreEqual(&known->string->object, &string->object))
            continue;
        free(string);
        return known->string;
    }
    ConstantString *constant = static_cast<ConstantString *>(malloc(sizeof *constant));
    if (constant == nullptr) {
        free(string);
        return nullptr;
    }
    string->object.references = kImmortal;
    constant->string = string;
    constant->next = g_constants;
    g_constants = constant;
    return string;
}

// Writes one character, UTF-8 of `length` bytes, in the encoding; how many bytes, 0 if the encoding
// does not have it.
static size_t Encode(const char *character, size_t length, uint32_t codePoint,
                     CFStringEncoding encoding, char out[kUtf8Max])
{
    if (encoding == kCFStringEncodingUTF8) {
        memcpy(out, character, length);
        return length;
    }
    const int byte = encoding == kCFStringEncodingMacRoman ? MacRomanByte(codePoint) : -1;
    out[0] = static_cast<char>(byte);
    return byte < 0 ? 0 : 1;
}

Boolean CFStringGetCString(CFStringRef theString, char *buffer, CFIndex bufferSize,
                           CFStringEncoding encoding)
{
    if (theString == nullptr)
        HaltAtNull("CFStringGetCString");
    if (buffer == nullptr || bufferSize <= 0)
        return false;
    size_t room = static_cast<size_t>(bufferSize) - 1;
    const char *at = theString->text;
    char *end = buffer;
    bool complete = encoding == kCFStringEncodingUTF8 || encoding == kCFStringEncodingMacRoman;
    while (complete && *at != '\0') {
        uint32_t codePoint = 0;
        char encoded[kUtf8Max];
        const size_t length = Utf8Character(at, strlen(at), &codePoint);
        const size_t made = Encode(at, length, codePoint, encoding, encoded);
        complete = made > 0 && made <= room;
        if (!complete)
            break;
        memcpy(end, encoded, made);
        end += made;
        room -= made;
        at += length;
    }
    // What was written before a failure stays, behind an empty text.
    *(complete ? end : buffer) = '\0';
    return complete;
}

// ---- Dictionaries ----

struct Entry {
    const void *key;
    const void *value;
};

struct __CFDictionary {
    Object object;
    CFDictionaryKeyCallBacks keys;
    CFDictionaryValueCallBacks values;
    Entry *entries;
    size_t count;
};

static const void *RetainObject(CFAllocatorRef /*allocator*/, const void *value)
{
    return CFRetain(value);
}

static void ReleaseObject(CFAllocatorRef /*allocator*/, const void *value)
{
    CFRelease(value);
}

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, RetainObject, ReleaseObject, nullptr, CFEqual, CFHash};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, RetainObject, ReleaseObject,
                                                                    nullptr, CFEqual};

static const void *Retained(CFDictionaryRetainCallBack retain, const void *value)
{
    return retain == nullptr ? value : retain(kCFAllocatorDefault, value);
}

static void GiveBack(CFDictionaryReleaseCallBack release, const void *value)
{
    if (release != nullptr)
        release(kCFAllocatorDefault, value);
}

static bool AreEqual(CFDictionaryEqualCallBack equal, const void *left, const void *right)
{
    return left == right || (equal != nullptr && equal(left, right));
}

static void DestroyDictionary(Object *object)
{
    __CFDictionary *dictionary = reinterpret_cast<__CFDictionary *>(object);
    for (size_t i = 0; i < dictionary->count; i++) {
        GiveBack(dictionary->keys.release, dictionary->entries[i].key);
        GiveBack(dictionary->values.release, dictionary->entries[i].value);
    }
    free(dictionary->entries);
    free(dictionary);
}

static Entry *FindEntry(const __CFDictionary *dictionary, const void *key)
{
    for (size_t i = 0; i < dictionary->count; i++) {
        if (AreEqual(dictionary->keys.equal, dictionary->entries[i].key, key))
            return &dictionary->entries[i];
    }
    return nullptr;
}

bool HasEntriesOf(CFDictionaryRef dictionary, CFDictionaryRef match)
{
    for (size_t i = 0; match != nullptr && i < match->count; i++) {
        const Entry *found = FindEntry(dictionary, match->entries[i].key);
        if (found == nullptr ||
            !AreEqual(match->values.equal, match->entries[i].value, found->value))
            return false;
    }
    return true;
}

static bool DictionariesAreEqual(const Object *left, const Object *right)
{
    const __CFDictionary *one = reinterpret_cast<const __CFDictionary *>(left);
    const __CFDictionary *other = reinterpret_cast<const __CFDictionary *>(right);
    return one->count == other->count && HasEntriesOf(other, one);
}

static CFHashCode DictionaryHash(const Object *object)
{
    return reinterpret_cast<const __CFDictionary *>(object)->count;
}

static constexpr ObjectType kDictionaryType = {DestroyDictionary, DictionariesAreEqual,
                                               DictionaryHash};

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef /*allocator*/, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks *keyCallBacks,
                                                 const CFDictionaryValueCallBacks *valueCallBacks)
{
    if (capacity < 0)
        return nullptr;
    __CFDictionary *dictionary =
        static_cast<__CFDictionary *>(NewObject(&kDictionaryType, sizeof(__CFDictionary)));
    if (dictionary == nullptr)
        return nullptr;
    if (keyCallBacks != nullptr)
        dictionary->keys = *keyCallBacks;
    if (valueCallBacks != nullptr)
        dictionary->values = *valueCallBacks;
    return dictionary;
}

// True if the entry is there afterwards.
static bool SetEntry(__CFDictionary *dictionary, const void *key, const void *value)
{
    Entry *found = FindEntry(dictionary, key);
    if (found != nullptr) {
        const Entry previous = *found;
        found->key = Retained(dictionary->keys.retain, key);
        found->value = Retained(dictionary->values.retain, value);
        GiveBack(dictionary->keys.release, previous.key);
        GiveBack(dictionary->values.release, previous.value);
        return true;
    }
    Entry *entries = static_cast<Entry *>(
        reallocarray(dictionary->entries, dictionary->count + 1, sizeof(Entry)));
    if (entries == nullptr)
        return false;
    dictionary->entries = entries;
    entries[dictionary->count].key = Retained(dictionary->keys.retain, key);
    entries[dictionary->count].value = Retained(dictionary->values.retain, value);
    dictionary->count++;
    return true;
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef theDict)
{
    if (theDict == nullptr)
        HaltAtNull("CFDictionaryCreateCopy");
    __CFDictionary *copy =
        CFDictionaryCreateMutable(allocator, 0, &theDict->keys, &theDict->values);
    if (copy == nullptr)
        return nullptr;
    for (size_t i = 0; i < theDict->count; i++) {
        if (SetEntry(copy, theDict->entries[i].key, theDict->entries[i].value))
            continue;
        CFRelease(copy);
        return nullptr;
    }
    return copy;
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void *key, const void *value)
{
    if (theDict == nullptr)
        HaltAtNull("CFDictionarySetValue");
    SetEntry(theDict, key, value);
}

const void *CFDictionaryGetValue(CFDictionaryRef theDict, const void *key)
{
    if (theDict == nullptr)
        HaltAtNull("CFDictionaryGetValue");
    const Entry *found = FindEntry(theDict, key);
    return found == nullptr ? nullptr : found->value;
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict)
{
    if (theDict == nullptr)
        HaltAtNull("CFDictionaryGetCount");
    return static_cast<CFIndex>(theDict->count);
}
