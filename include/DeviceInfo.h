/**
 * @file DeviceInfo.h
 * @brief The device information record. Plain C.
 */
#ifndef QUORVEL_DEVICE_INFO_H
#define QUORVEL_DEVICE_INFO_H

/**
 * What a gateway tells about itself: 20 bytes, taken from the gateway unchanged.
 *
 * The library gives a meaning to the device kind only; the other bytes are the gateway firmware's.
 */
typedef struct SQuorvelDeviceInfo {
    unsigned char aucFirmware[18]; /**< offset 0: as the gateway's firmware defines them */
    unsigned char
        nDeviceType;         /**< offset 18: device kind; the client's own kind when the gateway sends less */
    unsigned char nReserved; /**< offset 19: as the gateway's firmware defines it */
} SQuorvelDeviceInfo;

#endif
