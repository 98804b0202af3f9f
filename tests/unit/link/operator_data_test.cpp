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

TEST(OperatorData, CopyOutlivesItsSourceWithEveryField) {
  auto source = std::make_unique<SDK_OperatorData>();
  source->m_op = SDK_OPEN;
  source->m_pid = 4000000000u;
  source->m_id = -2;
  source->m_type = -3;
  source->m_status = false;
  source->m_closeAll = true;
  source->m_recover = true;
  source->m_themeMode = 2;
  source->m_flag = 5;
  source->m_path = std::wstring(10000, L'p');
  source->m_param = std::wstring(20000, L'q');
  source->m_tabwnd = 132456;
  source->m_rect = {1, 2, 3, 4};
  const SDK_OperatorData copy = *source;
  source.reset();
  EXPECT_EQ(copy.m_op, SDK_OPEN);
  EXPECT_EQ(copy.m_pid, 4000000000u);
  EXPECT_EQ(copy.m_id, -2);
  EXPECT_EQ(copy.m_type, -3);
  EXPECT_FALSE(copy.m_status);
  EXPECT_TRUE(copy.m_closeAll);
  EXPECT_TRUE(copy.m_recover);
  EXPECT_EQ(copy.m_themeMode, 2);
  EXPECT_EQ(copy.m_flag, 5);
  EXPECT_EQ(copy.m_path, std::wstring(10000, L'p'));
  EXPECT_EQ(copy.m_param, std::wstring(20000, L'q'));
  EXPECT_EQ(copy.m_tabwnd, 132456u);
  EXPECT_EQ(copy.m_rect.x, 1);
  EXPECT_EQ(copy.m_rect.y, 2);
  EXPECT_EQ(copy.m_rect.w, 3);
  EXPECT_EQ(copy.m_rect.h, 4);
}

TEST(OperatorData, OperatorsHaveFixedNumbers) {
  const std::int32_t numbers[] = {
      SDK_NONE,
      SDK_TESTSERVER,
      SDK_PreLoadProcess,
      SDK_OPEN,
      SDK_CLOSE,
      SDK_FULLSCREEN,
      SDK_RESERVED6,
      SDK_SETPOS,
      SDK_OPEN_BARE,
      SDK_CLOSE_ALT,
      SDK_FULLSCREEN_ALT,
      SDK_EDIT,
      SDK_SAVEAS,
      SDK_SHOW_SIDEBAR,
      SDK_RUN_ERROR,
      SDK_CUSTOM_MESSAGE,
      SDK_OPERATE,
      SDK_FINISH_OPERATOR,
      SDK_PROCESS_EXIT,
      SDK_CANCEL_PROCESS_EXIT,
      SDK_BROWSER_COMMAND,
      SDK_RESERVED21,
      SDK_CHANGE_THEME,
  };
  std::int32_t expected = 0;
  for (const std::int32_t number : numbers) {
    EXPECT_EQ(number, expected++);
  }
}
