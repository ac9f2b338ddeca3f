#include <gtest/gtest.h>

#include "EditRecords.h"
#include "TempDir.h"
#include "edits/EditManifestStoreBox.h"

namespace tapekeep {
namespace {

TEST(EditManifestStoreBoxTest, KeepsItsStoreUntilTheBaseFolderReallyChanges) {
    test::TempDir temp;
    EditManifestStoreBox box(temp / "base");
    int changes = 0;
    box.setObserver([&](const std::shared_ptr<EditManifestStore>&) { ++changes; });
    const auto first = box.store();
    first->setBeforeManifestWrite([] { throw std::runtime_error("hooked"); });

    EXPECT_FALSE(box.setBaseFolder(temp.path() / "base/"));
    EXPECT_FALSE(box.setBaseFolder(temp.path() / "other/../base"));
    EXPECT_EQ(box.store(), first);
    EXPECT_EQ(changes, 0);

    EXPECT_TRUE(box.setBaseFolder(temp / "elsewhere"));
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(box.store()->baseURL(), temp / "elsewhere");
    // A fresh store: the old one's hook is gone with it.
    EXPECT_NO_THROW(box.store()->save(EditManifest{1, "M8_4C3C645B", {test::newFileEdit()}}));
}

}  // namespace
}  // namespace tapekeep
