#include "vexelsdk/link/operator_data.h"

#include <gtest/gtest.h>

#include <memory>

TEST(OperatorData, StartsWithStatusTrueFlagOneAndNothingElse) {
  const SDK_OperatorData record;
  EXPECT_EQ(record.m_op, SDK_NONE);
  EXPECT_EQ(record.m_pid, 0u);
  EXPECT_EQ(record.m_id, 0);
  EXPECT_EQ(record.m_type, 0);
  EXPECT_TRUE(record.m_status);
  EXPECT_FALSE(record.m_closeAll);
  EXPECT_FALSE(record.m_recover);
  EXPECT_EQ(record.m_themeMode, 0);
  EXPECT_EQ(record.m_flag, 1);
  EXPECT_TRUE(record.m_path.empty());
  EXPECT_TRUE(record.m_param.empty());
  EXPECT_EQ(record.m_tabwnd, 0u);
  EXPECT_EQ(record.m_rect.x, 0);
  EXPECT_EQ(record.m_rect.y, 0);
  EXPECT_EQ(record.m_rect.w, 0);
  EXPECT_EQ(record.m_rect.h, 0);
}

TEST(OperatorData, CopyOutlivesItsSource) {
  auto source = std::make_unique<SDK_OperatorData>();
  source->m_path = std::wstring(10000, L'p');
  source->m_param = std::wstring(20000, L'q');
  source->m_op = SDK_OPEN;
  source->m_rect = {1, 2, 3, 4};
  const SDK_OperatorData copy = *source;
  source.reset();
  EXPECT_EQ(copy.m_path, std::wstring(10000, L'p'));
  EXPECT_EQ(copy.m_param, std::wstring(20000, L'q'));
  EXPECT_EQ(copy.m_op, SDK_OPEN);
  EXPECT_EQ(copy.m_rect.h, 4);
}
