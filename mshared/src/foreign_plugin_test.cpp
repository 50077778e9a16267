#include "nbx/foreign_plugin.h"

#include <gtest/gtest.h>

namespace nbx {
namespace {

int g_finalized = 0;
const void* g_xtra_at_end = nullptr;
void** g_watched = nullptr;
bool g_was_back_ref_set = false;

void Finalize(I_ForeignPlugin* plugin) {
    ++g_finalized;
    g_xtra_at_end = plugin->get_Xtra();
    g_was_back_ref_set = g_watched != nullptr && *g_watched != nullptr;
}

TEST(ForeignPlugin, StoresTheHostsWords) {
    ForeignPlugin_imp plugin;
    EXPECT_EQ(plugin.get_Xtra(), nullptr);
    EXPECT_EQ(plugin.get_BackRef(), nullptr);
    int word = 0;
    void* back = &word;
    plugin.put_Xtra(&word);
    plugin.put_BackRef(&back);
    EXPECT_EQ(plugin.get_Xtra(), &word);
    EXPECT_EQ(plugin.get_BackRef(), &back);
}

TEST(ForeignPlugin, CallsItsFinaliserOnceAndThenClearsTheBackReference) {
    g_finalized = 0;
    int word = 0;
    void* back = &word;
    g_watched = &back;
    {
        ForeignPlugin_imp plugin;
        plugin.put_Xtra(&word);
        plugin.put_BackRef(&back);
        plugin.put_Finalize(Finalize);
        EXPECT_EQ(g_finalized, 0);
    }
    EXPECT_EQ(g_finalized, 1);
    EXPECT_EQ(g_xtra_at_end, &word);
    EXPECT_TRUE(g_was_back_ref_set);
    EXPECT_EQ(back, nullptr);
    g_watched = nullptr;
}

}  // namespace
}  // namespace nbx
