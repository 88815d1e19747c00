# The console's start (its own SPI set-up, the self-test, the device id), its
# ways out, the parser's answers and the built-in commands help, exit, rrb, rwb
# and the unsupported word/dword commands.
import pytest

from console_util import (CONSOLE_END, CONSOLE_PREAMBLE, EIO, NO_DEVICE, OPEN_LINE, READ_OK, VALID, WRITE_OK,
                          check, command_xfers, console_session, prepare, tokens)

WRITE_ERR = "can't write spi message"
FAIL = "SPI interface selftest fail!\n"
EINVAL = "Invalid argument"
RWB_USAGE = "Usage: rwb        <RegNum> <RegData>      -- register write in byte.\n\n"
RRW_USAGE = "hwreadw_cmd not supported\nUsage: rrw        <RegNum>                -- register read in word\n\n"
EXIT_SESSION = CONSOLE_PREAMBLE + "=>exit\r\n" + CONSOLE_END


def spidev_events(bench, kind):
    return [e for e in bench.events() if e.kind == kind and "spidev" in e.args[0]]


def test_start_runs_the_selftest_and_restores_register_104(bench):
    prepare(bench, {104: 0x5A})
    check(bench, ["-C"], 0, EXIT_SESSION, VALID, stdin="exit\n")
    reads = [("R", 0, 0x95)] * 255 + [("R", 104, 0x5A)]
    passes = [x for v in range(255) for x in (("W", 104, v), ("R", 104, v))]
    assert bench.xfers() == reads + passes + [("W", 104, 0x5A), ("R", 0, 0x95)]
    if not bench.sees_calls:
        return
    # Three bytes each; a read takes 8 bits per word and a receive buffer, a
    # write the descriptor's setting (0) and none (the kernel's SPI core fills
    # a 0 with the device's word size before a controller sees it).
    assert {(x.op, x.bpw, x.rx, x.len) for x in bench.xfer_events()} == {("R", 8, 1, 3), ("W", 0, 0, 3)}
    # The console's own set-up follows the tool's, on a descriptor of its own.
    ioctls = [(e.args[0], e.args[1]) for e in bench.events() if e.kind == "ioctl"]
    assert ioctls == [("WR_MODE", "0"), ("WR_BITS_PER_WORD", "8"), ("WR_MAX_SPEED_HZ", "4000000"),
                      ("WR_MODE", "3"), ("WR_LSB_FIRST", "0"), ("WR_BITS_PER_WORD", "8"),
                      ("WR_MAX_SPEED_HZ", "4000000")]
    assert len(spidev_events(bench, "open")) == 2 == len(spidev_events(bench, "close"))


def test_console_ignores_the_tools_device(bench):
    # The tool's device is missing, so its speed set-up failed: exit status 255.
    check(bench, ["--device=/dev/spidev9.9", "--switch-console"], 255, EXIT_SESSION, NO_DEVICE + VALID,
          stdin="exit\n")
    if bench.sees_calls:
        assert [e.args[0] for e in spidev_events(bench, "open")] == ["/dev/spidev9.9", "/dev/spidev0.0"]


def test_ksz8893_board_is_refused_in_read_pass_0(bench_nor):
    check(bench_nor, ["-y"], 0, OPEN_LINE + "selftest_device_spi (0): read data value 88 is not equal"
          " to switch ID 95\n" + CONSOLE_END, FAIL, stdin="help\n")
    assert bench_nor.xfers() == [("R", 0, 0x88)]


# A set-up ioctl that fails, or transfers that fail from the given one on,
# counted from 0 at the console's start. In the VM the controller under
# wr-mode declares clock mode 0 alone: it refuses the console's mode 3 and
# takes the tool's mode 0.
@pytest.mark.parametrize("fault,out,err,rc,reg104", [
    ("open", "ERROR: Fail to open input file /dev/spidev0.0\n", NO_DEVICE, 255, 0x33),
    pytest.param("wr-mode", "ERROR: set SPI mode 0x03\n", f"can't set spi mode: {EINVAL}\n", 0, 0x33,
                 marks=pytest.mark.preload_only("the kernel refuses no clock mode 0")),
    pytest.param("wr-mode", "ERROR: set SPI mode 0x03\n", "", 0, 0x33,
                 marks=pytest.mark.vm_only("the preload bench refuses every mode")),
    pytest.param("wr-lsb", "ERROR: Fail to set SPI heading lsb 0x00\n", "", 0, 0x33,
                 marks=pytest.mark.preload_only("the kernel refuses no MSB-first")),
    pytest.param("wr-bits", "ERROR: Fail to set SPI bits_per_word 8\n", f"can't set bits per word: {EINVAL}\n",
                 0, 0x33, marks=pytest.mark.preload_only("the kernel refuses no 8 bits per word")),
    ("wr-speed", "ERROR: Fail to set SPI max_speed_hz 4000000\n",
     f"can't set max speed hz: {EINVAL}\n" "init Switch SPI fail!\n", 255, 0x33),
    # The held value cannot be read and the first write fails.
    (255, READ_OK + "selftest_device_spi: read data value ff is not equal to write data 0\n",
     EIO + WRITE_ERR + EIO + FAIL, 0, 0x33),
    # The value is not written back, and the id check reads nothing.
    (766, READ_OK + WRITE_OK + "incrorrect device ID (ff).\n", WRITE_ERR + EIO + "Invalid device ID!\n", 0, 254),
])
def test_start_failures_end_the_console(bench, fault, out, err, rc, reg104):
    bench.poke(104, 0x33)
    if isinstance(fault, str):
        bench.fault(fault)
    else:
        bench.fault("xfer-from", fault + 1)
    bench.clear_events()
    check(bench, ["-C"], rc, OPEN_LINE + out + CONSOLE_END, err, stdin="exit\n")
    assert len(bench.xfers()) == (0 if isinstance(fault, str) else fault)
    if bench.sees_calls:  # whatever was opened is closed again
        assert len([e for e in spidev_events(bench, "open") if e.args[1] == "ok=1"]) == len(
            spidev_events(bench, "close"))
    bench.clear_faults()
    assert bench.peek(104) == reg104


# A closed standard input reads as the end of input, which ends the console as
# Ctrl-C does: on the bench, where openlog opens no socket, the bench's own
# state file would otherwise take descriptor 0 and the editor would read it.
def test_closed_input_ends_the_console(bench):
    check(bench, ["-C"], 0, CONSOLE_PREAMBLE + "=>" + CONSOLE_END, VALID, closed=(0,))


@pytest.mark.parametrize("option", ["-M", "--dump-mib"])
def test_dump_mib_runs_showmib_once_without_prompt(bench, option):
    typed = console_session(bench, "showmib").outputs[0]
    check(bench, [option], 0, CONSOLE_PREAMBLE + typed + CONSOLE_END, VALID, stdin="rwb 10 5\n")


def test_parser_answers_and_register_commands(bench):
    prepare(bench, {0x10: 0x5A, 0xFF: 0x77})
    lines = [  # typed, output
        ("", ""),  # nothing to recall yet: no command runs
        ("rrb 1FF", tokens("1FF") + "reg.1FF : 77 \n"),
        ("  rrb\t0x10", tokens("0x10") + "reg.10 : 5a \n"),
        ("rwb 10", tokens("10") + RWB_USAGE),
        ("", tokens("10") + RWB_USAGE),  # usage leaves the line whole
        ("rwb 11 1a5", tokens("11", "1a5")),
        ("rwb 13 4,5 6", tokens("13", "4,5 6")),
        ("rrw 10", RRW_USAGE),
        ("rrl", "hwreadl_cmd not supported\n"
         "Usage: rrl        <RegNum>                -- register read in dword\n\n"),
        ("rww 1 2", "hwwritew_cmd not supported\n"
         "Usage: rww        <RegNum> <RegData>      -- register write in word.\n\n"),
        ("rwl", "hwwritel_cmd not supported\n"
         "Usage: rwl        <RegNum> <RegData>      -- register write in dword.\n\n"),
        ("exit now", ""),
    ]
    # What follows exit is never read.
    res = console_session(bench, *[line for line, _ in lines], "rwb 10 6", exit_line=False)
    assert res.outputs == [out for _, out in lines]
    assert command_xfers(bench) == [("R", 0xFF, 0x77), ("R", 0x10, 0x5A),
                                    ("W", 0x11, 0xA5), ("W", 0x13, 4)]


def test_help_prints_the_usage_table(bench):
    res = console_session(bench, "help", "help now", "")
    text = res.outputs[0]
    assert res.outputs == [text] * 3 + [""]
    lines = text.split("\n")
    assert len(lines) == 17 + 1 + 47 + 2
    assert lines[0] == "RegNum     = { 0 ..     ff }   -- Register number."
    assert lines[15] == ("Rate-mode  = { 0 ..      3 }   -- 0 - all frames, 1 - broadcast\\"
                         "multicast\\flooded unicast, 2 - broadcast\\multicast, 3 - broadcast.")
    assert lines[17:19] == ["", "help                               -- Display help message."]
    assert lines[-3:] == ["rateinfo                           -- show all the port's rate limit"
                          " configuration.", "", ""]
