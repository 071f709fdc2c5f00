/**
 * @file
 * The two marks that every public header of libkorvex_util uses, and nothing else.
 */
#ifndef KORVEX_API_H
#define KORVEX_API_H

/** Marks what the shared object exports; everything without it is private to the library. */
#define KORVEX_API __attribute__((visibility("default")))

/** Lets the compiler check a printf-style call: the positions (from 1) of the format and of its first argument. */
#define KORVEX_PRINTF(position, first) __attribute__((format(printf, position, first)))

#endif
