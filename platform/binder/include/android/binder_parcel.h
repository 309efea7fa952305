// The container of what a call carries: little-endian, each value on a boundary of 4 bytes.
//
// Threads: a parcel belongs to one thread at a time, reading included, since reading moves the
// position. Different parcels are independent. Nothing here blocks; only functions that drop
// references to binders may run foreign code (the end of a local object): AParcel_delete,
// AParcel_reset, AParcel_unmarshal.
//
// Writing: at the position, over what is there or beyond the end. STATUS_NO_MEMORY: no memory, or
// the parcel would hold more than 16 MiB. STATUS_BAD_VALUE: a length that makes no sense, or a
// place where something cannot be put (a binder that the parcel holds is never written over).
// Reading: STATUS_NOT_ENOUGH_DATA: the value or the announced length goes beyond the end.
// STATUS_BAD_VALUE: the bytes cannot be what is asked for. A failed read or write leaves the
// position anywhere at or behind where it was.
//
// Strings are UTF-8 here and UTF-16 in the parcel; what is not valid in either becomes U+FFFD.

#pragma once

#include <android/binder_status.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>

struct AIBinder;
typedef struct AIBinder AIBinder;

__BEGIN_DECLS

struct AParcel;
typedef struct AParcel AParcel;

// An empty parcel, which the caller ends with AParcel_delete.
AParcel* AParcel_create() __attribute__((warn_unused_result));
// Drops the references that it holds. Null is accepted.
void AParcel_delete(AParcel* parcel);
// Makes it empty, position 0.
binder_status_t AParcel_reset(AParcel* parcel);

// In bytes from the begin: a multiple of 4 up to the size, or the size. STATUS_BAD_VALUE otherwise.
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);
int32_t AParcel_getDataPosition(const AParcel* parcel);
int32_t AParcel_getDataSize(const AParcel* parcel);

// Writes `size` bytes of `from`, beginning at `start` (a multiple of 4), to `to` at its position;
// binders that lie wholly in the range come with new references. `from` and its position stay as
// they are. STATUS_BAD_VALUE: the range is not within `from`.
binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size);

// Copies `len` bytes beginning at `start` out of the parcel. STATUS_BAD_VALUE: not within the
// parcel; STATUS_INVALID_OPERATION: the parcel holds binders, which bytes cannot stand for.
binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len);
// Replaces the content by a copy of these bytes, position 0.
binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len);

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value);
binder_status_t AParcel_writeFloat(AParcel* parcel, float value);
binder_status_t AParcel_writeDouble(AParcel* parcel, double value);
binder_status_t AParcel_writeBool(AParcel* parcel, bool value);
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value);
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value);

// `*value` changes only on success.
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value);
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value);
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value);
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value);
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value);

// The parcel takes a reference of its own. Null is written as null.
binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder);
// Gives the caller a new reference, or null if null was written. STATUS_BAD_TYPE: no binder stands
// here.
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder);

// Begins the reply of an interface method. A status with EX_TRANSACTION_FAILED writes nothing: its
// binder_status_t is returned, which the method's stub gives back as the outcome of the whole call.
binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);
// On success `*status` is a new status of the caller.
binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);

// Called once with the length in bytes including the terminating zero, or with -1 for a null
// string. Gives the place for that many bytes, which the reader fills; false refuses:
// STATUS_UNEXPECTED_NULL for null, else STATUS_NO_MEMORY. For null `buffer` is null.
typedef bool (*AParcel_stringAllocator)(void* stringData, int32_t length, char** buffer);

// `length` counts bytes without a terminating zero, which is not needed. A null string has length
// -1.
binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length);
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator);

// Arrays.
//
// Each begins with its number of elements, -1 for a null array. An allocator is called once, before
// any element is read, with the number of elements, which the bytes that are left have been
// compared with, or -1 (`outBuffer` is then null). It gives the place for the elements, null is
// fine for none; false refuses: STATUS_UNEXPECTED_NULL for null, else STATUS_NO_MEMORY. A null
// pointer is written with length -1 as a null array and with 0 as an empty one.

typedef bool (*AParcel_int32ArrayAllocator)(void* arrayData, int32_t length, int32_t** outBuffer);
typedef bool (*AParcel_int64ArrayAllocator)(void* arrayData, int32_t length, int64_t** outBuffer);
typedef bool (*AParcel_floatArrayAllocator)(void* arrayData, int32_t length, float** outBuffer);
typedef bool (*AParcel_doubleArrayAllocator)(void* arrayData, int32_t length, double** outBuffer);
typedef bool (*AParcel_charArrayAllocator)(void* arrayData, int32_t length, char16_t** outBuffer);
typedef bool (*AParcel_byteArrayAllocator)(void* arrayData, int32_t length, int8_t** outBuffer);

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length);
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length);
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* arrayData, int32_t length);
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* arrayData, int32_t length);
binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* arrayData, int32_t length);
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length);

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator);
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator);
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator);
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator);
binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator);
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator);

// Booleans need not lie side by side: they are got and set one by one.
typedef bool (*AParcel_boolArrayAllocator)(void* arrayData, int32_t length);
typedef bool (*AParcel_boolArrayGetter)(const void* arrayData, size_t index);
typedef void (*AParcel_boolArraySetter)(void* arrayData, size_t index, bool value);
binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter);
binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter);

// Strings: lengths as for single ones. The getter gives the element and its length, -1 with null
// for a null string.
typedef bool (*AParcel_stringArrayAllocator)(void* arrayData, int32_t length);
typedef bool (*AParcel_stringArrayElementAllocator)(void* arrayData, size_t index, int32_t length,
                                                    char** buffer);
typedef const char* (*AParcel_stringArrayElementGetter)(const void* arrayData, size_t index,
                                                        int32_t* outLength);
binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter);
binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator);

// Anything else: the callbacks write and read one element each; their first failure ends the array.
typedef bool (*AParcel_parcelableArrayAllocator)(void* arrayData, int32_t length);
typedef binder_status_t (*AParcel_writeParcelableElement)(AParcel* parcel, const void* arrayData,
                                                          size_t index);
typedef binder_status_t (*AParcel_readParcelableElement)(const AParcel* parcel, void* arrayData,
                                                         size_t index);
binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter);
binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader);

__END_DECLS
