// The console's entry: its own SPI descriptor, the self-test of the SPI path,
// the device id check, and the prompt loop or a single built-in command.
#include "console/switch_console.h"

#include "chip/device_database.h"
#include "console/cli_parser.h"
#include "console/hw_access.h"
#include "console/readline.h"
#include "core/unique_fd.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// The console always talks to this device, whatever -D gave the tool.
constexpr const char *CONSOLE_SPI_DEVICE = "/dev/spidev0.0";
constexpr std::uint8_t CONSOLE_SPI_MODE = SPI_MODE_3;
constexpr std::uint8_t CONSOLE_SPI_LSB_FIRST = 0;
constexpr std::uint8_t CONSOLE_SPI_BITS = 8;
constexpr std::uint32_t CONSOLE_SPI_SPEED_HZ = 4000000;

// The console insists on the KSZ8864/KSZ8895 family id.
constexpr std::uint8_t SWITCH_DEVICE_ID = 0x95;
constexpr unsigned int REG_CHIP_ID = 0x00;
// A plain read/write register that the self-test borrows and restores.
constexpr unsigned int REG_SELFTEST = 0x68;
constexpr int SELFTEST_PASSES = 255;

// The byte-wide settings of the console's device, in the order they are set,
// each with its message of failure.
struct ByteSetting {
    unsigned long request;
    std::uint8_t value;
    const char *error_format;
};
constexpr ByteSetting console_spi_settings[] = {
    {SPI_IOC_WR_MODE, CONSOLE_SPI_MODE, "ERROR: set SPI mode 0x%02x\n"},
    {SPI_IOC_WR_LSB_FIRST, CONSOLE_SPI_LSB_FIRST, "ERROR: Fail to set SPI heading lsb 0x%02x\n"},
    {SPI_IOC_WR_BITS_PER_WORD, CONSOLE_SPI_BITS, "ERROR: Fail to set SPI bits_per_word %d\n"},
};

constexpr const char *CLI_VERSION = "1.0.2 ";
constexpr const char *CLI_PROMPT = "=>";

int console_spi_open(const char *path) {
    std::printf("going to open input file %s\n", path);
    // On a failed set-up the caller only sees -1, so the descriptor is
    // closed here: nobody else could close it.
    UniqueFd fd(open(path, O_RDWR));
    if (!fd.valid()) {
        std::printf("ERROR: Fail to open input file %s\n", path);
        return -1;
    }
    for (const ByteSetting &setting : console_spi_settings) {
        std::uint8_t value = setting.value;
        if (ioctl(fd.get(), setting.request, &value) < 0) {
            std::printf(setting.error_format, setting.value);
            return -1;
        }
    }
    return fd.release();
}

int console_spi_speed(int fd) {
    std::uint32_t speed = CONSOLE_SPI_SPEED_HZ;
    if (ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, &speed) < 0) {
        std::printf("ERROR: Fail to set SPI max_speed_hz %d\n",
                    static_cast<int>(CONSOLE_SPI_SPEED_HZ));
        return -1;
    }
    return 0;
}

int selftest_device_spi(int fd) {
    for (int pass = 0; pass < SELFTEST_PASSES; ++pass) {
        const std::uint8_t id = hw_read_byte(fd, REG_CHIP_ID);
        if (id != SWITCH_DEVICE_ID) {
            std::printf("%s (%d): read data value %02x is not equal to switch ID %02x\n",
                        "selftest_device_spi", pass, id, SWITCH_DEVICE_ID);
            return -1;
        }
    }
    std::printf("Switch SPI read selftest %s.\n", "OK");

    const std::uint8_t held = hw_read_byte(fd, REG_SELFTEST);
    for (unsigned int value = 0; value < SELFTEST_PASSES; ++value) {
        hw_write_byte(fd, REG_SELFTEST, value);
        const std::uint8_t back = hw_read_byte(fd, REG_SELFTEST);
        if (back != value) {
            // The register keeps what this pass wrote.
            std::printf("%s: read data value %x is not equal to write data %x\n",
                        "selftest_device_spi", back, value);
            return -1;
        }
    }
    std::printf("Switch SPI write/read selftest %s.\n", "OK");

    hw_write_byte(fd, REG_SELFTEST, held);
    return 0;
}

int check_device_id(int fd) {
    const std::uint8_t id = hw_read_byte(fd, REG_CHIP_ID);
    if (id != SWITCH_DEVICE_ID) {
        std::printf("incrorrect device ID (%02x).\n", id);
        return -1;
    }
    std::printf("%s %s.\n", "KSZ8895 CLI Function version ", CLI_VERSION);
    return 0;
}

struct MemoryFree {
    void operator()(char *memory) const { std::free(memory); }
};

// What a console run holds: the line buffer and its own SPI descriptor.
// Whatever way the run ends, "exit cli function." is printed first, then the
// descriptor is closed (members go in reverse order) and the buffer freed.
struct ConsoleRun {
    ConsoleRun() = default;
    ConsoleRun(const ConsoleRun &) = delete;
    ConsoleRun &operator=(const ConsoleRun &) = delete;
    ConsoleRun(ConsoleRun &&) = delete;
    ConsoleRun &operator=(ConsoleRun &&) = delete;
    ~ConsoleRun() { std::puts("exit cli function."); }

    std::unique_ptr<char, MemoryFree> line;
    UniqueFd fd;
};

// The step messages go to standard error; what went to standard output
// before them is pushed out first, so that both streams keep their order on
// a shared terminal.
void step_message(const char *text) {
    std::fflush(stdout);
    std::fputs(text, stderr);
}

// The interactive prompt: one line buffer for the whole run, zeroed once, so
// that an empty line recalls what the buffer last held.
void prompt_loop(int fd, char *line) {
    std::memset(line, 0, LINE_BUFFER_SIZE);
    for (;;) {
        const int length = readline(line, CLI_PROMPT);
        if (length > 0) {
            if (cli_parser(fd, line) == 0)
                return;
        } else if (length < 0) {
            return;
        }
    }
}

// One built-in command, run from a writable copy: the parser works in place
// on its line, and the command texts given here are constants.
void single_command(int fd, const char *command) {
    char text[LINE_BUFFER_SIZE] = {};
    std::strncpy(text, command, sizeof text - 1);
    cli_parser(fd, text);
}

void console_steps(ConsoleRun &run, const char *command) {
    run.line.reset(static_cast<char *>(std::malloc(LINE_BUFFER_SIZE)));
    // GCOVR_EXCL_START: the bench cannot make an allocation fail
    if (!run.line) {
        std::puts("alloc rxbuf fail!");
        return;
    }
    // GCOVR_EXCL_STOP
    run.fd.reset(console_spi_open(CONSOLE_SPI_DEVICE));
    if (!run.fd.valid())
        return;
    const int fd = run.fd.get();
    if (console_spi_speed(fd) < 0) {
        step_message("init Switch SPI fail!\n");
        return;
    }
    // GCOVR_EXCL_START: the database fails only when an allocation fails
    if (init_database() < 0) {
        step_message("Fail to alloc database memory!\n");
        return;
    }
    // GCOVR_EXCL_STOP
    if (selftest_device_spi(fd) < 0) {
        step_message("SPI interface selftest fail!\n");
        return;
    }
    if (check_device_id(fd) < 0) {
        step_message("Invalid device ID!\n");
        return;
    }
    step_message("valid device ID!\n");

    if (command != nullptr)
        single_command(fd, command);
    else
        prompt_loop(fd, run.line.get());
}

} // namespace

int switch_console(const char *cmd) {
    ConsoleRun run;
    console_steps(run, cmd);
    return 0;
}
