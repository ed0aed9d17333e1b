#include "sysinfo/VXRenderedImageCache.h"

#include "TempTree.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using Bytes = VXRenderedImageCache::Bytes;

TEST(VXRenderedImageCacheTest, getOrRender_sameKey_rendersOnceButFailuresAgain) {
    VXRenderedImageCache cache;
    int renders = 0;
    const auto render = [&](bool works) {
        return [&renders, works]() -> std::optional<Bytes> {
            ++renders;
            return works ? std::optional<Bytes>(Bytes{1, 2, 3}) : std::nullopt;
        };
    };
    EXPECT_EQ(cache.getOrRender("a", render(true)), (Bytes{1, 2, 3}));
    EXPECT_EQ(cache.getOrRender("a", render(true)), (Bytes{1, 2, 3}));
    EXPECT_EQ(renders, 1);
    cache.getOrRender("b", render(true));
    EXPECT_EQ(renders, 2);
    EXPECT_FALSE(cache.getOrRender("x", render(false)));
    EXPECT_FALSE(cache.getOrRender("x", render(false)));
    EXPECT_EQ(renders, 4);
    EXPECT_EQ(cache.size(), 2u);
}

TEST(VXRenderedImageCacheTest, getOrRender_overBudget_leastRecentlyUsedGoesFirst) {
    VXRenderedImageCache cache(400);
    const auto image = [](std::uint8_t tag) {
        return [tag]() -> std::optional<Bytes> { return Bytes(100, tag); };
    };
    cache.getOrRender("1", image(1));
    cache.getOrRender("2", image(2));
    cache.getOrRender("3", image(3));
    cache.getOrRender("4", image(4));
    cache.getOrRender("1", image(9)); // used again: now the most recent
    cache.getOrRender("5", image(5)); // over budget: "2" goes
    EXPECT_EQ(cache.size(), 4u);
    EXPECT_EQ(cache.getOrRender("1", image(9))->front(), 1);
    EXPECT_EQ(cache.getOrRender("2", image(7))->front(), 7); // rendered again
    // An image larger than a quarter of the budget is answered but not kept.
    EXPECT_EQ(cache.getOrRender("big", [] { return std::optional<Bytes>(Bytes(200, 0)); })->size(), 200u);
    EXPECT_EQ(cache.getOrRender("big", [] { return std::optional<Bytes>(Bytes(1, 0)); })->size(), 1u);
}

TEST(VXRenderedImageCacheTest, fileKey_changedFile_newKey) {
    TempTree tree;
    const std::string path = tree.write("icon.png", "one");
    const auto before = VXRenderedImageCache::fileKey(path, 64, 64, 0);
    ASSERT_TRUE(before);
    EXPECT_NE(before, VXRenderedImageCache::fileKey(path, 64, 32, 0));
    EXPECT_NE(before, VXRenderedImageCache::fileKey(path, 64, 64, 1));
    tree.write("icon.png", "three");
    EXPECT_NE(before, VXRenderedImageCache::fileKey(path, 64, 64, 0));
    EXPECT_FALSE(VXRenderedImageCache::fileKey(tree.path("missing.png"), 64, 64, 0));
}

TEST(VXRenderedImageCacheTest, getOrRender_manyThreads_consistent) {
    VXRenderedImageCache cache(1000);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                const auto tag = static_cast<std::uint8_t>((i + t) % 20);
                const auto bytes = cache.getOrRender(std::to_string(tag),
                                                     [tag] { return std::optional<Bytes>(Bytes(90, tag)); });
                if (!bytes || bytes->front() != tag) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_LE(cache.size(), 11u);
}

} // namespace
