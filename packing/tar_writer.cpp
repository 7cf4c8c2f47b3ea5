#include "packing/tar_writer.h"

#include <zstd.h>

#include <array>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "packing/tar_head.h"

namespace packing {

namespace {

template <std::size_t Size>
void put_text(char (&field)[Size], std::string_view text) {
  text.copy(field, Size);
}

// As many digits as the field has room for, beside the zero byte behind them.
template <std::size_t Size>
void put_octal(char (&field)[Size], std::uint64_t number) {
  for (std::size_t at = Size - 1; at-- > 0; number /= 8)
    field[at] = static_cast<char>('0' + number % 8);
}

}  // namespace

struct tar_writer::state {
  state(sink to, int level) : write(std::move(to)), context(ZSTD_createCCtx(), &ZSTD_freeCCtx) {
    if (context == nullptr) throw std::bad_alloc();
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_compressionLevel, level);
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
  }

  void put(std::string_view bytes, ZSTD_EndDirective how = ZSTD_e_continue) {
    ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
    for (;;) {
      ZSTD_outBuffer packed{buffer.data(), buffer.size(), 0};
      const std::size_t left = ZSTD_compressStream2(context.get(), &packed, &in, how);
      if (ZSTD_isError(left) != 0) throw packing_error(ZSTD_getErrorName(left));
      write({buffer.data(), packed.pos});
      if (how == ZSTD_e_end ? left == 0 : in.pos == in.size) return;
    }
  }

  void put_padding(std::uint64_t of) {
    constexpr std::array<char, block_size> zeros{};
    put({zeros.data(), static_cast<std::size_t>(in_whole_blocks(of) - of)});
  }

  void put_head(std::string_view prefix, std::string_view name, char kind, std::uint64_t of) {
    tar_head head{};
    put_text(head.name, name);
    put_text(head.prefix, prefix);
    put_octal(head.mode, 0600);
    put_octal(head.owner, 0);
    put_octal(head.group, 0);
    put_octal(head.size, of);
    put_octal(head.changed, 0);  // the archive is the same, whenever it was packed
    head.kind = kind;
    put_text(head.magic, "ustar");
    put_text(head.version, "00");
    put_octal(head.sum, sum_of(head));
    std::array<char, block_size> bytes{};
    std::memcpy(bytes.data(), &head, block_size);
    put({bytes.data(), bytes.size()});
  }

  void put_long_name(const std::string& name) {
    const std::string record = long_name_record(name);
    put_head("", "capture/name", 'x', record.size());
    put(record);
    put_padding(record.size());
  }

  sink write;
  std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> context;
  std::vector<char> buffer = std::vector<char>(ZSTD_CStreamOutSize());
  std::uint64_t size = 0;  // of the entry that has begun
};

tar_writer::tar_writer(sink write, int level)
    : state_(std::make_unique<state>(std::move(write), level)) {}

tar_writer::~tar_writer() = default;

void tar_writer::begin_entry(const std::string& name, std::uint64_t size) {
  state_->size = size;
  if (const auto fields = fields_of(name)) {
    state_->put_head(fields->prefix, fields->name, '0', size);
  } else {
    state_->put_long_name(name);
    state_->put_head("", std::string_view{name}.substr(0, sizeof tar_head::name), '0', size);
  }
}

void tar_writer::put(std::string_view bytes) {
  state_->put(bytes);
}

void tar_writer::end_entry() {
  state_->put_padding(state_->size);
}

void tar_writer::finish() {
  constexpr std::array<char, size_of_end> end{};
  state_->put({end.data(), end.size()}, ZSTD_e_end);
}

}  // namespace packing
