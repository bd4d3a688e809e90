// SPDX-License-Identifier: Apache-2.0
//
// A NAND chip: four verbs, a geometry, and the defects and wear of real chips.
//
// The chip does what its pins are told and no more: it keeps no partition, no descriptor and no
// write protection. What it adds is knowledge: it counts erases and programs, and it counts what
// a kernel lets pass and a chip suffers from (RuleBreaks).
//
// Its memory is shared: processes that open the same files, and children of fork(), see one chip,
// and what was programmed stays when a process is killed. Nothing here locks: one process at a
// time may use the verbs.
#ifndef SIM_NAND_H
#define SIM_NAND_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;

struct Geometry {
  std::uint32_t page_size = 2048;      // bytes; the unit of programming
  std::uint32_t pages_per_block = 64;  // a block is the unit of erasing
  std::uint32_t oob_size = 64;         // spare bytes per page; reported, not stored
  std::uint32_t blocks = 0;            // blocks of the whole chip

  std::uint32_t block_size() const { return page_size * pages_per_block; }
  std::uint64_t size() const { return std::uint64_t{block_size()} * blocks; }
  std::uint64_t pages() const { return std::uint64_t{pages_per_block} * blocks; }
};

// How a block takes an erase. One that fails has lost its content all the same.
enum class EraseDefect : std::uint8_t {
  none,
  worn,              // fails with EIO; the block is not reported bad
  turns_bad_fails,   // fails with EIO; from then on the block is reported bad
  turns_bad_passes,  // succeeds; from then on the block is reported bad
};

// Lasting defects of a page, to be combined.
enum PageDefect : std::uint8_t {
  kPageFailsProgram = 1,  // programming is done and fails with EIO
  kPageUnreadable = 2,    // beyond correction: each read gives other random bytes and no error
  kPageMisread = 4,       // beyond correction: reads give wrong data, the same each time, no error
};

// What no kernel refuses and no chip should be asked for; counted since the chip was made.
struct RuleBreaks {
  std::uint64_t page_programmed_twice;  // without an erase between
  std::uint64_t page_out_of_order;      // a page before one that is already programmed
  std::uint64_t block_not_erased;       // programmed after an erase that failed or was cut off
  std::uint64_t bad_block_programmed;
  std::uint64_t bad_block_erased;
  std::uint64_t bad_block_read;

  std::uint64_t total() const {
    return page_programmed_twice + page_out_of_order + block_not_erased + bad_block_programmed +
           bad_block_erased + bad_block_read;
  }
};

class Nand {
 public:
  // A chip in files below `folder`, fresh from the factory: erased, no bad block. The files are
  // sparse: an erased chip takes no room. Throws std::runtime_error.
  static Nand create(const std::filesystem::path& folder, const Geometry& geometry);
  static Nand open(const std::filesystem::path& folder, const Geometry& geometry);
  // The same in memory; children of fork() share it.
  static Nand in_memory(const Geometry& geometry);

  Nand(Nand&&) noexcept;
  Nand& operator=(Nand&&) noexcept;
  ~Nand();

  const Geometry& geometry() const;

  // --- The four verbs. Results are 0 or an errno value. Arguments must be in range. ---

  // Reads any bytes. Pages beyond correction and unstable bits give wrong data and no error.
  void read(std::uint64_t offset, void* buffer, std::size_t length);
  // Programs one page with page_size bytes: the result is the AND of old and new. EIO on a page
  // that fails to program.
  int program(std::uint64_t page, const std::uint8_t* data);
  // Sets a block to 0xFF. EIO on a worn block and on one that turns bad and fails.
  int erase(std::uint32_t block);
  bool is_bad(std::uint32_t block) const;

  // --- A verb that the power left in the middle. ---

  // The page's first `bytes` bytes are programmed, the rest is as before.
  void program_torn(std::uint64_t page, const std::uint8_t* data, std::uint32_t bytes);
  // Every bit that was to change reads as 0 or 1 anew at each read, until the block is erased.
  void program_unstable(std::uint64_t page, const std::uint8_t* data);
  // The block's first `pages` pages are erased, the rest is as before.
  void erase_torn(std::uint32_t block, std::uint32_t pages);
  // Every programmed bit of the block reads as 0 or 1 anew at each read, until it is erased.
  void erase_unstable(std::uint32_t block);

  // --- Making a chip what a test wants it to be; none of it counts as use. ---

  void set_bad(std::uint32_t block, bool bad = true);
  // The defect shows at the `nth` erase from now on (worn blocks: at all later ones too).
  void set_erase_defect(std::uint32_t block, EraseDefect defect, std::uint32_t nth = 1);
  // `defects` is a sum of PageDefect values; 0 heals the page.
  void set_page_defects(std::uint64_t page, std::uint8_t defects);
  // One bit in eight reads as 0 or 1 anew at each read, until the block is erased.
  void set_page_unstable(std::uint64_t page);
  // Puts bytes in place, whatever was there; pages that hold other than 0xFF count as programmed.
  void poke(std::uint64_t offset, const void* data, std::size_t length);
  // The stored bytes, without the noise of unstable or unreadable pages and without counting.
  void peek(std::uint64_t offset, void* buffer, std::size_t length) const;

  // --- What happened. ---

  std::uint32_t erase_count(std::uint32_t block) const;   // successful erases
  std::uint32_t program_count(std::uint64_t page) const;  // over the chip's life
  bool is_programmed(std::uint64_t page) const;           // since the block's last erase
  const RuleBreaks& rule_breaks() const;
  void clear_rule_breaks();

  // All of the chip, content, wear and defects: for going back to a state again and again.
  Bytes snapshot() const;
  // Takes a snapshot of a chip of the same geometry.
  void restore(const Bytes& snapshot);

  // One byte per block, not 0 when the block is bad: for callers that ask millions of times. The
  // stride from one block's byte to the next is returned by bad_stride().
  const std::uint8_t* bad_map() const;
  static std::size_t bad_stride();

 private:
  struct Memory;
  explicit Nand(std::unique_ptr<Memory> memory);
  std::unique_ptr<Memory> memory_;
};

}  // namespace sim

#endif
