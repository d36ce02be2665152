/**
 * @file QuorvelExport.h
 * @brief Marks what the shared library exports; everything else in it is hidden.
 */
#ifndef QUORVEL_EXPORT_H
#define QUORVEL_EXPORT_H

#if defined(__GNUC__)
#define QUORVEL_API __attribute__((visibility("default")))
#else
#define QUORVEL_API
#endif

#endif
