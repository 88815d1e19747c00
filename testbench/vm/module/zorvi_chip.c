// SPDX-License-Identifier: GPL-2.0
/*
 * zorvi_chip: the board of the VM bench, seen from the kernel.
 *
 * An SPI controller with bus number 0 and one device at chip select 0, bound
 * to the kernel's own spidev driver (so /dev/spidev0.0 is spidev's), and a GPIO
 * chip with base 0 and 256 lines (so the legacy sysfs numbers 56 and 191 are
 * its lines). The switch chip itself lives in user space: every SPI message
 * and every level driven on a line is handed to the chip server through the
 * misc device /dev/zorvi-chip, which answers it (see zorvi_chip.h).
 *
 * Test equipment only: never installed with the product.
 *
 * Parameters, changeable at run time under /sys/module/zorvi_chip/parameters:
 *   mode_bits     the SPI modes the controller declares (spi_setup refuses
 *                 others)
 *   min_speed_hz  the slowest clock the controller accepts in set-up
 *   busy_line     a line the module holds itself, so that exporting it fails
 *                 with EBUSY (-1: none)
 */
#include <linux/gpio/driver.h>
#include <linux/gpio/machine.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/poll.h>
#include <linux/slab.h>
#include <linux/spi/spi.h>
#include <linux/uaccess.h>

#include "zorvi_chip.h"

#define ZC_NGPIO	256
#define ZC_MODE_BITS	(SPI_CPHA | SPI_CPOL | SPI_CS_HIGH | SPI_LSB_FIRST)
#define ZC_MAX_SPEED_HZ 10000000

enum zc_slot { ZC_IDLE, ZC_PENDING, ZC_READ };

static struct {
	struct mutex ask_lock;	/* one request at a time */
	struct mutex slot_lock; /* the slot, the buffers, the server flag */
	wait_queue_head_t server_wq;
	struct completion answered;
	enum zc_slot slot;
	bool server;
	int status;
	u8 *req;
	size_t req_len;
	u8 rx[ZC_MAX_BYTES];
	size_t rx_len;

	struct platform_device *pdev;
	struct spi_controller *ctlr;
	struct gpio_chip gc;
	bool gc_added;
	struct gpio_desc *busy;
	DECLARE_BITMAP(out, ZC_NGPIO);
	DECLARE_BITMAP(level, ZC_NGPIO);
} zc;

static unsigned int mode_bits = ZC_MODE_BITS;
static unsigned int min_speed_hz;
static int busy_line = -1;

/*
 * The request in zc.req (req_len bytes) goes to the server; its answer comes
 * back in zc.rx (rx_len bytes) and the result. The caller waits for as long
 * as the server has the device open, however slow it is: without a server
 * the request fails with EIO at once, and so it does when the server closes
 * the device before it answers. A fatal signal ends the wait; the server's
 * late answer then gets EPROTO.
 */
static int zc_ask(void)
{
	int status;

	mutex_lock(&zc.slot_lock);
	if (!zc.server) {
		mutex_unlock(&zc.slot_lock);
		return -EIO;
	}
	reinit_completion(&zc.answered);
	zc.slot = ZC_PENDING;
	zc.status = -EIO;
	zc.rx_len = 0;
	mutex_unlock(&zc.slot_lock);
	wake_up_interruptible(&zc.server_wq);

	status = wait_for_completion_killable(&zc.answered);
	mutex_lock(&zc.slot_lock);
	if (!status)
		status = zc.status;
	zc.slot = ZC_IDLE;
	mutex_unlock(&zc.slot_lock);
	return status;
}

static pid_t zc_caller(void)
{
	/* The pid as the caller knows itself, in its own PID namespace. */
	return (current->flags & PF_KTHREAD) ? 0 : task_tgid_vnr(current);
}

/* ---- SPI ----------------------------------------------------------------- */

/* Flattens the message into zc.req: header, transfer records, sent bytes. */
static int zc_pack_message(struct spi_message *msg, size_t *total)
{
	struct zc_request *rq = (struct zc_request *)zc.req;
	struct zc_transfer *tr = (struct zc_transfer *)(rq + 1);
	struct spi_transfer *t;
	u8 *tx;
	u32 n = 0;

	list_for_each_entry (t, &msg->transfers, transfer_list)
		n++;
	if (n > ZC_MAX_TRANSFERS)
		return -EINVAL;
	tx = (u8 *)(tr + n);
	*total = 0;
	list_for_each_entry (t, &msg->transfers, transfer_list) {
		if (*total + t->len > ZC_MAX_BYTES)
			return -EMSGSIZE;
		tr->len = t->len;
		tr->speed_hz = t->speed_hz;
		tr->bits_per_word = t->bits_per_word;
		tr->cs_change = t->cs_change;
		tr->has_tx = t->tx_buf != NULL;
		tr->has_rx = t->rx_buf != NULL;
		if (t->tx_buf) {
			memcpy(tx, t->tx_buf, t->len);
			tx += t->len;
		}
		*total += t->len;
		tr++;
	}
	rq->kind = ZC_SPI;
	rq->pid = zc_caller();
	rq->count = n;
	rq->line = 0;
	rq->level = 0;
	zc.req_len = tx - zc.req;
	return 0;
}

static int zc_transfer_one_message(struct spi_controller *ctlr,
				   struct spi_message *msg)
{
	struct spi_transfer *t;
	size_t total = 0, off = 0;
	int status;

	mutex_lock(&zc.ask_lock);
	status = zc_pack_message(msg, &total);
	if (!status)
		status = zc_ask();
	if (!status && zc.rx_len != total)
		status = -EIO;
	if (!status) {
		list_for_each_entry (t, &msg->transfers, transfer_list) {
			if (t->rx_buf)
				memcpy(t->rx_buf, zc.rx + off, t->len);
			off += t->len;
		}
		msg->actual_length = total;
	}
	mutex_unlock(&zc.ask_lock);
	msg->status = status;
	spi_finalize_current_message(ctlr);
	return 0;
}

static int zc_setup(struct spi_device *spi)
{
	if (min_speed_hz && spi->max_speed_hz < min_speed_hz)
		return -EINVAL;
	return 0;
}

static int zc_add_spi(void)
{
	struct spi_device *spi;
	int ret;

	zc.ctlr = spi_alloc_master(&zc.pdev->dev, 0);
	if (!zc.ctlr)
		return -ENOMEM;
	zc.ctlr->bus_num = 0;
	zc.ctlr->num_chipselect = 1;
	zc.ctlr->mode_bits = mode_bits;
	zc.ctlr->bits_per_word_mask = SPI_BPW_RANGE_MASK(1, 32);
	zc.ctlr->max_speed_hz = ZC_MAX_SPEED_HZ;
	zc.ctlr->setup = zc_setup;
	zc.ctlr->transfer_one_message = zc_transfer_one_message;
	ret = spi_register_controller(zc.ctlr);
	if (ret) {
		spi_controller_put(zc.ctlr);
		zc.ctlr = NULL;
		return ret;
	}

	spi = spi_alloc_device(zc.ctlr);
	if (!spi)
		return -ENOMEM;
	spi->chip_select = 0;
	spi->max_speed_hz = ZC_MAX_SPEED_HZ;
	spi->mode = SPI_MODE_0;
	strscpy(spi->modalias, "zorvi-chip", sizeof(spi->modalias));
	/* Bound to spidev by name, as a board's user would. */
	spi->driver_override = kstrdup("spidev", GFP_KERNEL);
	ret = spi->driver_override ? spi_add_device(spi) : -ENOMEM;
	if (ret)
		spi_dev_put(spi);
	return ret;
}

/* ---- GPIO ---------------------------------------------------------------- */

/* A level driven on an output line reaches the chip. */
static int zc_drive(unsigned int line, int level)
{
	struct zc_request *rq;
	int status;

	mutex_lock(&zc.ask_lock);
	assign_bit(line, zc.level, level);
	rq = (struct zc_request *)zc.req;
	rq->kind = ZC_GPIO;
	rq->pid = zc_caller();
	rq->count = 0;
	rq->line = line;
	rq->level = level ? 1 : 0;
	zc.req_len = sizeof(*rq);
	/* Without a server the line still changes: nothing listens to it. */
	status = READ_ONCE(zc.server) ? zc_ask() : 0;
	mutex_unlock(&zc.ask_lock);
	return status;
}

static int zc_get_direction(struct gpio_chip *gc, unsigned int line)
{
	return test_bit(line, zc.out) ? GPIO_LINE_DIRECTION_OUT
				      : GPIO_LINE_DIRECTION_IN;
}

static int zc_direction_input(struct gpio_chip *gc, unsigned int line)
{
	clear_bit(line, zc.out);
	return 0;
}

static int zc_direction_output(struct gpio_chip *gc, unsigned int line,
			       int level)
{
	set_bit(line, zc.out);
	return zc_drive(line, level);
}

static int zc_get(struct gpio_chip *gc, unsigned int line)
{
	return test_bit(line, zc.level);
}

static void zc_set(struct gpio_chip *gc, unsigned int line, int level)
{
	zc_drive(line, level);
}

static int zc_add_gpio(void)
{
	int ret;

	zc.gc.label = "zorvi-chip";
	zc.gc.parent = &zc.pdev->dev;
	zc.gc.owner = THIS_MODULE;
	zc.gc.base = 0;
	zc.gc.ngpio = ZC_NGPIO;
	zc.gc.can_sleep = true;
	zc.gc.get_direction = zc_get_direction;
	zc.gc.direction_input = zc_direction_input;
	zc.gc.direction_output = zc_direction_output;
	zc.gc.get = zc_get;
	zc.gc.set = zc_set;
	ret = gpiochip_add_data(&zc.gc, NULL);
	zc.gc_added = ret == 0;
	return ret;
}

/* ---- parameters ---------------------------------------------------------- */

static int zc_set_mode_bits(const char *val, const struct kernel_param *kp)
{
	int ret = param_set_uint(val, kp);

	if (!ret && zc.ctlr)
		zc.ctlr->mode_bits = mode_bits;
	return ret;
}

static const struct kernel_param_ops zc_mode_bits_ops = {
	.set = zc_set_mode_bits,
	.get = param_get_uint,
};
module_param_cb(mode_bits, &zc_mode_bits_ops, &mode_bits, 0644);
MODULE_PARM_DESC(mode_bits, "SPI mode bits the controller declares");

module_param(min_speed_hz, uint, 0644);
MODULE_PARM_DESC(min_speed_hz,
		 "slowest clock the controller accepts in set-up (0: any)");

static int zc_set_busy_line(const char *val, const struct kernel_param *kp)
{
	struct gpio_desc *desc = NULL;
	int line, ret;

	ret = kstrtoint(val, 0, &line);
	if (ret)
		return ret;
	if (line < -1 || line >= ZC_NGPIO || (line >= 0 && !zc.gc_added))
		return -EINVAL;
	if (zc.busy) {
		gpiochip_free_own_desc(zc.busy);
		zc.busy = NULL;
	}
	if (line >= 0) {
		desc = gpiochip_request_own_desc(&zc.gc, line, "zorvi-busy",
						 GPIO_LOOKUP_FLAGS_DEFAULT,
						 GPIOD_ASIS);
		if (IS_ERR(desc)) {
			busy_line = -1;
			return PTR_ERR(desc);
		}
	}
	zc.busy = desc;
	busy_line = line;
	return 0;
}

static const struct kernel_param_ops zc_busy_line_ops = {
	.set = zc_set_busy_line,
	.get = param_get_int,
};
module_param_cb(busy_line, &zc_busy_line_ops, &busy_line, 0644);
MODULE_PARM_DESC(busy_line, "GPIO line held by the module itself (-1: none)");

/* ---- the chip server's device -------------------------------------------- */

static int zc_open(struct inode *inode, struct file *file)
{
	int ret = 0;

	mutex_lock(&zc.slot_lock);
	if (zc.server) {
		ret = -EBUSY;
	} else {
		/* A new server finds every line an input at level 0. */
		bitmap_zero(zc.out, ZC_NGPIO);
		bitmap_zero(zc.level, ZC_NGPIO);
		zc.server = true;
		zc.slot = ZC_IDLE;
	}
	mutex_unlock(&zc.slot_lock);
	return ret;
}

static int zc_release(struct inode *inode, struct file *file)
{
	mutex_lock(&zc.slot_lock);
	zc.server = false;
	if (zc.slot != ZC_IDLE) {
		zc.status = -EIO;
		complete(&zc.answered);
	}
	mutex_unlock(&zc.slot_lock);
	return 0;
}

static ssize_t zc_read(struct file *file, char __user *buf, size_t count,
		       loff_t *ppos)
{
	ssize_t ret;

	for (;;) {
		mutex_lock(&zc.slot_lock);
		if (zc.slot == ZC_PENDING)
			break;
		mutex_unlock(&zc.slot_lock);
		if (file->f_flags & O_NONBLOCK)
			return -EAGAIN;
		if (wait_event_interruptible(zc.server_wq,
					     READ_ONCE(zc.slot) == ZC_PENDING))
			return -ERESTARTSYS;
	}
	if (count < zc.req_len) {
		ret = -EINVAL;
	} else if (copy_to_user(buf, zc.req, zc.req_len)) {
		ret = -EFAULT;
	} else {
		zc.slot = ZC_READ;
		ret = zc.req_len;
	}
	mutex_unlock(&zc.slot_lock);
	return ret;
}

static ssize_t zc_write(struct file *file, const char __user *buf, size_t count,
			loff_t *ppos)
{
	struct zc_answer ans;
	ssize_t ret = count;

	if (count < sizeof(ans) || copy_from_user(&ans, buf, sizeof(ans)))
		return -EINVAL;
	if (ans.len > ZC_MAX_BYTES || count != sizeof(ans) + ans.len ||
	    ans.status > 0 || ans.status < -MAX_ERRNO)
		return -EINVAL;
	mutex_lock(&zc.slot_lock);
	if (zc.slot != ZC_READ) {
		ret = -EPROTO; /* nothing asked, or the asker gave up */
	} else if (copy_from_user(zc.rx, buf + sizeof(ans), ans.len)) {
		ret = -EFAULT;
	} else {
		zc.rx_len = ans.len;
		zc.status = ans.status;
		zc.slot = ZC_IDLE;
		complete(&zc.answered);
	}
	mutex_unlock(&zc.slot_lock);
	return ret;
}

static __poll_t zc_poll(struct file *file, poll_table *wait)
{
	poll_wait(file, &zc.server_wq, wait);
	return READ_ONCE(zc.slot) == ZC_PENDING ? EPOLLIN | EPOLLRDNORM : 0;
}

static const struct file_operations zc_fops = {
	.owner = THIS_MODULE,
	.open = zc_open,
	.release = zc_release,
	.read = zc_read,
	.write = zc_write,
	.poll = zc_poll,
	.llseek = no_llseek,
};

static struct miscdevice zc_misc = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "zorvi-chip",
	.fops = &zc_fops,
};

/* ---- module -------------------------------------------------------------- */

static void zc_remove_all(void)
{
	if (zc.busy)
		gpiochip_free_own_desc(zc.busy);
	zc.busy = NULL;
	if (zc.gc_added)
		gpiochip_remove(&zc.gc);
	zc.gc_added = false;
	if (zc.ctlr)
		spi_unregister_controller(zc.ctlr);
	zc.ctlr = NULL;
	if (zc.pdev)
		platform_device_unregister(zc.pdev);
	zc.pdev = NULL;
	kfree(zc.req);
}

static int __init zc_init(void)
{
	int ret;

	mutex_init(&zc.ask_lock);
	mutex_init(&zc.slot_lock);
	init_waitqueue_head(&zc.server_wq);
	init_completion(&zc.answered);
	zc.req = kmalloc(ZC_MAX_REQUEST, GFP_KERNEL);
	if (!zc.req)
		return -ENOMEM;
	zc.pdev = platform_device_register_simple("zorvi-chip",
						  PLATFORM_DEVID_NONE, NULL, 0);
	ret = PTR_ERR_OR_ZERO(zc.pdev);
	if (ret) {
		zc.pdev = NULL;
		goto fail;
	}
	ret = zc_add_gpio();
	if (!ret)
		ret = zc_add_spi();
	if (!ret)
		ret = misc_register(&zc_misc);
	if (!ret)
		return 0;
fail:
	zc_remove_all();
	return ret;
}

static void __exit zc_exit(void)
{
	misc_deregister(&zc_misc);
	zc_remove_all();
}

module_init(zc_init);
module_exit(zc_exit);
MODULE_DESCRIPTION("Zorvi test bench: SPI controller and GPIO chip served from "
		   "user space");
MODULE_LICENSE("GPL");
