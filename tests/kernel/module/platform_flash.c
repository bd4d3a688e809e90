// SPDX-License-Identifier: Apache-2.0
/*
 * The part of a device's flash driver that mainline lacks, put on top of nandsim: named partitions,
 * write protection with its two requests, a count of what reaches the chip, and a power switch.
 *
 * MTD itself stays as it is. Partitions are MTD's own, added to nandsim's master. Protection,
 * count and power stand at the master's operations, which every partition ends in, so that MTD
 * has done all of its own checks before. mtdchar has no place for a driver's requests, it answers
 * them ENOTTY; that answer alone is replaced.
 *
 * Single-chip test code: numbers are counted under one lock, nothing is fast.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/fs.h>
#include <linux/kprobes.h>
#include <linux/module.h>
#include <linux/mtd/mtd.h>
#include <linux/mtd/partitions.h>
#include <linux/mutex.h>
#include <linux/sched/signal.h>
#include <linux/string.h>

#define LIFT_WRITE_PROTECTION _IOR('M', 24, int)
#define RESTORE_WRITE_PROTECTION _IOR('M', 25, int)

#define MAX_PARTITIONS 16
#define NAME_SIZE 32
#define NEVER (-1L)

struct named_partition {
	char name[NAME_SIZE];
	int index;  /* of /dev/mtdN */
	u64 offset; /* on the chip, bytes */
	u64 size;
	bool is_protected;
	unsigned long erases;	/* blocks */
	unsigned long programs; /* pages */
};

static struct named_partition partitions[MAX_PARTITIONS];
static unsigned int partition_count;
static struct mtd_info *window; /* nandsim's own partition, held so that it stays */
static struct mtd_info *chip;

static int (*chip_erase)(struct mtd_info *mtd, struct erase_info *instr);
static int (*chip_write_oob)(struct mtd_info *mtd, loff_t to, struct mtd_oob_ops *ops);
static int (*chip_read_oob)(struct mtd_info *mtd, loff_t from, struct mtd_oob_ops *ops);

static char *layout = "";
module_param(layout, charp, 0444);
MODULE_PARM_DESC(layout, "name:blocks,... from the start of the chip, without gaps");

static bool guard = true;
module_param(guard, bool, 0644);
MODULE_PARM_DESC(guard, "N lets writes pass whatever is protected; for preparing a case");

static bool power = true;
static long operations_left = NEVER;
module_param(operations_left, long, 0644);
MODULE_PARM_DESC(operations_left,
		 "block erases and page programs until the power goes, -1 for never");

/* One operation that changes flash at a time. */
static DEFINE_MUTEX(flash_lock);

/* --- Power ------------------------------------------------------------------------------------ */

static void protect_all(void)
{
	unsigned int i;

	for (i = 0; i < partition_count; i++)
		WRITE_ONCE(partitions[i].is_protected, true);
}

static int set_power(const char *text, const struct kernel_param *param)
{
	int error;

	mutex_lock(&flash_lock);
	error = param_set_bool(text, param);
	operations_left = NEVER;
	protect_all();
	mutex_unlock(&flash_lock);
	return error;
}

static const struct kernel_param_ops power_ops = {
	.set = set_power,
	.get = param_get_bool,
};
module_param_cb(power, &power_ops, &power, 0644);
MODULE_PARM_DESC(power, "N after the power went; writing Y starts the device again");

/* Whoever uses the flash of a device without power is gone, with all of its threads. */
static int die(void)
{
	send_sig(SIGKILL, current, 1);
	return -EIO;
}

/* Takes up to `wanted` operations; fewer are granted when the power goes at the next one. */
static u64 take_operations(u64 wanted)
{
	u64 granted = wanted;

	if (operations_left == NEVER)
		return wanted;
	if (granted > operations_left)
		granted = operations_left;
	operations_left -= granted;
	if (granted < wanted)
		power = false;
	return granted;
}

/* --- Protection ------------------------------------------------------------------------------- */

static struct named_partition *partition_at(u64 offset)
{
	unsigned int i;

	for (i = 0; i < partition_count; i++)
		if (offset >= partitions[i].offset &&
		    offset < partitions[i].offset + partitions[i].size)
			return &partitions[i];
	return NULL;
}

static struct named_partition *partition_of_node(int index)
{
	unsigned int i;

	for (i = 0; i < partition_count; i++)
		if (partitions[i].index == index)
			return &partitions[i];
	return NULL;
}

static bool refuses(const struct named_partition *partition)
{
	return guard && partition && READ_ONCE(partition->is_protected);
}

/* --- What a test may look at ------------------------------------------------------------------ */

static int get_state(char *text, const struct kernel_param *param)
{
	unsigned int i;
	int length = 0;

	for (i = 0; i < partition_count; i++)
		length +=
			scnprintf(text + length, PAGE_SIZE - length, "%s %lu %lu %s\n",
				  partitions[i].name, partitions[i].erases, partitions[i].programs,
				  partitions[i].is_protected ? "protected" : "lifted");
	return length;
}

static int reset_counts(const char *text, const struct kernel_param *param)
{
	unsigned int i;

	for (i = 0; i < partition_count; i++) {
		partitions[i].erases = 0;
		partitions[i].programs = 0;
	}
	return 0;
}

static const struct kernel_param_ops state_ops = {
	.set = reset_counts,
	.get = get_state,
};
module_param_cb(state, &state_ops, NULL, 0644);
MODULE_PARM_DESC(state, "a line per partition: name, blocks erased, pages programmed (failed ones "
			"count too), protected or lifted; writing sets the counts to 0");

/* --- The chip's operations -------------------------------------------------------------------- */

static int erase_powered(struct mtd_info *mtd, struct erase_info *instr,
			 struct named_partition *partition)
{
	const u64 wanted = mtd_div_by_eb(instr->len, mtd);
	const u64 granted = take_operations(wanted);
	struct erase_info cut = *instr;

	if (partition)
		partition->erases += granted;
	if (granted == wanted)
		return chip_erase(mtd, instr);
	cut.len = granted * mtd->erasesize;
	if (granted > 0)
		chip_erase(mtd, &cut);
	return die();
}

static int guarded_erase(struct mtd_info *mtd, struct erase_info *instr)
{
	struct named_partition *partition = partition_at(instr->addr);
	int result;

	mutex_lock(&flash_lock);
	if (!power)
		result = die();
	else if (refuses(partition))
		result = -EROFS;
	else
		result = erase_powered(mtd, instr, partition);
	mutex_unlock(&flash_lock);
	return result;
}

static u64 pages_of(struct mtd_info *mtd, const struct mtd_oob_ops *ops)
{
	if (!ops->datbuf)
		return 1; /* spare bytes of one page */
	return mtd_div_by_ws(ops->len + mtd->writesize - 1, mtd);
}

static int write_powered(struct mtd_info *mtd, loff_t to, struct mtd_oob_ops *ops,
			 struct named_partition *partition)
{
	const u64 wanted = pages_of(mtd, ops);
	const u64 granted = take_operations(wanted);

	if (partition)
		partition->programs += granted;
	if (granted == wanted)
		return chip_write_oob(mtd, to, ops);
	ops->len = granted * mtd->writesize;
	if (granted > 0)
		chip_write_oob(mtd, to, ops);
	return die();
}

static int guarded_write_oob(struct mtd_info *mtd, loff_t to, struct mtd_oob_ops *ops)
{
	struct named_partition *partition = partition_at(to);
	int result;

	mutex_lock(&flash_lock);
	if (!power)
		result = die();
	else if (refuses(partition))
		result = -EROFS;
	else
		result = write_powered(mtd, to, ops, partition);
	mutex_unlock(&flash_lock);
	return result;
}

static int powered_read_oob(struct mtd_info *mtd, loff_t from, struct mtd_oob_ops *ops)
{
	if (!READ_ONCE(power))
		return die();
	return chip_read_oob(mtd, from, ops);
}

static void take_operations_over(void)
{
	chip_erase = chip->_erase;
	chip_write_oob = chip->_write_oob;
	chip_read_oob = chip->_read_oob;
	chip->_erase = guarded_erase;
	chip->_write_oob = guarded_write_oob;
	chip->_read_oob = powered_read_oob;
}

static void give_operations_back(void)
{
	chip->_erase = chip_erase;
	chip->_write_oob = chip_write_oob;
	chip->_read_oob = chip_read_oob;
}

/* --- The two requests ------------------------------------------------------------------------- */

struct request {
	struct named_partition *partition;
	bool protects;
};

/* Returns 0 to see the answer too: the request is ours and so is the node that it was made on. */
static int on_request(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	const struct file *file = (const struct file *)regs_get_kernel_argument(regs, 0);
	const unsigned int number = regs_get_kernel_argument(regs, 1);
	struct request *request = (struct request *)instance->data;

	if (number != LIFT_WRITE_PROTECTION && number != RESTORE_WRITE_PROTECTION)
		return 1;
	/* mtdchar has two nodes a device: the even one, and the odd one that is read-only. */
	request->partition = partition_of_node(iminor(file_inode(file)) / 2);
	request->protects = number == RESTORE_WRITE_PROTECTION;
	return request->partition ? 0 : 1;
}

static int on_answer(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	const struct request *request = (const struct request *)instance->data;

	if ((long)regs_return_value(regs) != -ENOTTY)
		return 0;
	WRITE_ONCE(request->partition->is_protected, request->protects);
	regs_set_return_value(regs, 0);
	return 0;
}

static struct kretprobe request_probe = {
	.kp.symbol_name = "mtdchar_unlocked_ioctl",
	.entry_handler = on_request,
	.handler = on_answer,
	.data_size = sizeof(struct request),
};

/* --- Partitions ------------------------------------------------------------------------------- */

static int parse_entry(struct named_partition *partition, char *entry, u64 offset)
{
	const char *name = strsep(&entry, ":");
	unsigned int blocks;

	if (!entry || kstrtouint(entry, 10, &blocks) || strlen(name) >= NAME_SIZE)
		return -EINVAL;
	strscpy(partition->name, name, NAME_SIZE);
	partition->offset = offset;
	partition->size = (u64)blocks * chip->erasesize;
	partition->is_protected = true;
	return 0;
}

static int add_partition(struct named_partition *partition)
{
	struct mtd_info *mtd;
	int error;

	error = mtd_add_partition(chip, partition->name, partition->offset, partition->size);
	if (error)
		return error;
	mtd = get_mtd_device_nm(partition->name);
	if (IS_ERR(mtd))
		return PTR_ERR(mtd);
	partition->index = mtd->index;
	put_mtd_device(mtd);
	return 0;
}

static int add_partitions(char *text)
{
	u64 offset = 0;
	char *entry;
	int error;

	while ((entry = strsep(&text, ",")) && *entry) {
		struct named_partition *partition = &partitions[partition_count];

		if (partition_count == MAX_PARTITIONS)
			return -E2BIG;
		error = parse_entry(partition, entry, offset);
		if (!error)
			error = add_partition(partition);
		if (error) {
			pr_err("cannot add \"%s\": %d\n", entry, error);
			return error;
		}
		offset += partition->size;
		partition_count++;
	}
	return 0;
}

static void remove_partitions(void)
{
	while (partition_count > 0)
		mtd_del_partition(chip, partitions[--partition_count].index);
}

/* --- Module ----------------------------------------------------------------------------------- */

static int set_up(void)
{
	char *text = kstrdup(layout, GFP_KERNEL);
	int error;

	if (!text)
		return -ENOMEM;
	error = add_partitions(text);
	kfree(text);
	if (!error)
		error = register_kretprobe(&request_probe);
	if (error) {
		remove_partitions();
		return error;
	}
	take_operations_over();
	return 0;
}

static int __init platform_flash_init(void)
{
	int error;

	window = get_mtd_device(NULL, 0);
	if (IS_ERR(window))
		return PTR_ERR(window);
	chip = mtd_get_master(window);
	error = set_up();
	if (error)
		put_mtd_device(window);
	return error;
}

static void __exit platform_flash_exit(void)
{
	give_operations_back();
	unregister_kretprobe(&request_probe);
	remove_partitions();
	put_mtd_device(window);
}

module_init(platform_flash_init);
module_exit(platform_flash_exit);
MODULE_DESCRIPTION("Named, write-protected partitions with a power switch on nandsim");
MODULE_LICENSE("GPL");
