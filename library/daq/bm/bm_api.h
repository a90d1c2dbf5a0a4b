/// @file
/// Markers that the public headers share.
#ifndef ZRK4_BM_API_H
#define ZRK4_BM_API_H

/// Visible outside the library; everything without it is hidden.
#define BM_API __attribute__((visibility("default")))

/// A record that other processes read and write in place. Slots and buffers begin at any byte address, so the record
/// promises alignment 1; its padding is spelled out and its offsets are asserted beside it.
#define BM_PACKED __attribute__((packed))

#endif
