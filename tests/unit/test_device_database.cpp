// Chip operations that keep rows in the device database return at once while
// there is none: no transfer (on descriptor -1 it would show on stderr), no
// output, no crash.
#include "chip/device_database.h"
#include "chip/mac_tables.h"
#include "chip/mib_counters.h"
#include "chip/port_mirror.h"
#include "chip/port_vlan.h"
#include "chip/qos.h"
#include "chip/rate_limit.h"
#include "chip/vlan_table.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

TEST(ChipOperations, ReturnAtOnce) {
    // A second start keeps the database of the first.
    ASSERT_EQ(init_database(), 0);
    DrvCtrl *const first = gDrvCtrl;
    ASSERT_EQ(init_database(), 0);
    EXPECT_EQ(gDrvCtrl, first);
    // Releasing twice releases once.
    free_database();
    free_database();
    EXPECT_EQ(gDrvCtrl, nullptr);
    const std::uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    const std::function<void()> operations[] = {
        [] { SwitchShowMIBCounter(-1, MIB_ALL_PORTS); },
        [] { SwitchClearMIBCounter(-1); },
        [&] { SwitchAddStaticMac(-1, mac, 0, 0, 0, 0); },
        [&] { SwitchDelStaticMac(-1, mac, 0, 1, 0); },
        [] { SwitchDelVlan(-1, 1, 0, 1, 0); },
        [] { SwitchUpdateVlanPort(-1, 1, 0, 0, 1); },
        [] { SwitchShowVlanInfo(-1); },
        [] { SwitchShowQosInfo(-1); },
        [] { SwitchShowMirrorInfo(-1); },
        [] { SwitchShowRateInfo(-1); },
    };
    for (std::size_t i = 0; i < std::size(operations); ++i) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        operations[i]();
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(out + testing::internal::GetCapturedStderr(), "") << "operation " << i;
    }
}

} // namespace
