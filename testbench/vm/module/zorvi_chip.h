/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The channel between the zorvi_chip module and the chip server in user space,
 * the misc device /dev/zorvi-chip. The server read()s one request at a time
 * and write()s its answer before the next request comes:
 *
 *   request: struct zc_request, then for ZC_SPI `count` struct zc_transfer,
 *            then the bytes sent by the transfers that have has_tx, in order
 *   answer:  struct zc_answer, then `len` received bytes: for ZC_SPI the
 *            bytes of all transfers in order (len is their total), for
 *            ZC_GPIO none
 *
 * A status below 0 is an errno that fails the message. A request waits for
 * its answer as long as the server keeps the device open; it fails with EIO
 * when the server closes the device first, and every SPI message does while
 * no server has the device open.
 */
#ifndef ZORVI_CHIP_H
#define ZORVI_CHIP_H

#include <linux/types.h>

#define ZC_MAX_TRANSFERS 512  /* what SPI_IOC_MESSAGE can carry */
#define ZC_MAX_BYTES	 4096 /* spidev's buffer */

enum zc_kind { ZC_SPI = 1, ZC_GPIO = 2 };

struct zc_request {
	__u32 kind;
	__s32 pid;   /* the caller, in its own PID namespace (0: unknown) */
	__u32 count; /* ZC_SPI: transfers */
	__u32 line;  /* ZC_GPIO: the line driven */
	__u32 level; /* ZC_GPIO: 0 or 1 */
};

struct zc_transfer {
	__u32 len;
	__u32 speed_hz;
	__u8 bits_per_word;
	__u8 cs_change;
	__u8 has_tx;
	__u8 has_rx;
};

struct zc_answer {
	__s32 status;
	__u32 len;
};

#define ZC_MAX_REQUEST                                                         \
	(sizeof(struct zc_request) +                                           \
	 ZC_MAX_TRANSFERS * sizeof(struct zc_transfer) + ZC_MAX_BYTES)

#endif
