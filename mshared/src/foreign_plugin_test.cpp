#include "nbx/foreign_plugin.h"

#include <gtest/gtest.h>

namespace nbx {
namespace {

int gFinalized = 0;
const void* gXtraAtEnd = nullptr;
void** gWatched = nullptr;
bool gWasBackRefSet = false;

void Finalize(I_ForeignPlugin* plugin) {
    ++gFinalized;
    gXtraAtEnd = plugin->get_Xtra();
    gWasBackRefSet = gWatched != nullptr && *gWatched != nullptr;
}

TEST(ForeignPlugin, StoresTheHostsData) {
    int word = 0;
    void* back = &word;  // cleared when the plug-in is destroyed
    ForeignPlugin_imp plugin;
    EXPECT_EQ(plugin.get_Xtra(), nullptr);
    EXPECT_EQ(plugin.get_BackRef(), nullptr);
    plugin.put_Xtra(&word);
    plugin.put_BackRef(&back);
    EXPECT_EQ(plugin.get_Xtra(), &word);
    EXPECT_EQ(plugin.get_BackRef(), &back);
}

TEST(ForeignPlugin, CallsItsFinaliserOnceAndThenClearsTheBackReference) {
    gFinalized = 0;
    int word = 0;
    void* back = &word;
    gWatched = &back;
    {
        ForeignPlugin_imp plugin;
        plugin.put_Xtra(&word);
        plugin.put_BackRef(&back);
        plugin.put_Finalize(Finalize);
        EXPECT_EQ(gFinalized, 0);
    }
    EXPECT_EQ(gFinalized, 1);
    EXPECT_EQ(gXtraAtEnd, &word);
    EXPECT_TRUE(gWasBackRefSet);
    EXPECT_EQ(back, nullptr);
    gWatched = nullptr;
}

}  // namespace
}  // namespace nbx
