#include <gtest/gtest.h>

#include "QENAssert.h"
#include "QENBundle/QENBundle.h"
#include "Support/QENCapturedAssertions.h"

namespace {

// The module follows the last marker folder with two components after it; the second of them
// decides whether it joins the name. Empty components from doubled slashes count as positions.
TEST(ModuleNameForSourcePath, FindsTheModuleAfterTheLastQualifyingMarker) {
  const std::pair<const char*, const char*> table[] = {
      {"/build/Platform/Kit/Sources/File", "Kit"},
      {"/build/Feature/Home/Tests/File", "HomeTests"},
      {"/src/Other/File", "unknown"},
      {"/a/Platform/Kit/Sources/Feature/Ui/Sources/File", "Ui"},
      {"/build/FeatureLibrary/Feed/Sources/File", "Feed"},
      {"/a/Platform/Kit/Sources/x/Library/File", "Kit"},
      {"/x/Platform//Sources/File", ""},
      {"/x/platform/Kit/Sources/File", "unknown"},
  };
  for (const auto& [path, module] : table) {
    EXPECT_EQ(ModuleNameForSourcePath(path), module) << path;
  }
}

std::string executableName() {
  const std::string path = QENBundle::mainBundle()->executablePath();
  return path.substr(path.rfind('/') + 1);
}

TEST(AssertionFailureReport, SendsTheSevenFieldsWithALazyFileIdentifier) {
  QENCapturedAssertions captured;
  AssertionFailureReport("message", "-[QENMeasuredTask initWithTask:]", 42,
                         "/build/Platform/Kit/Sources/File.cpp", "File.cpp");
  AssertionFailureReport("message", "-[X y]", 7, "/src/Other/File.cpp", "File.cpp");

  const auto records = captured.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].message, "message");
  EXPECT_TRUE(records[0].skipLogOnProduction);
  EXPECT_EQ(records[0].additionalFramesToTrim, 1);
  EXPECT_EQ(records[0].method, "-[QENMeasuredTask initWithTask:]");
  EXPECT_EQ(records[0].line, 42);
  EXPECT_EQ(records[0].filePath, "/build/Platform/Kit/Sources/File.cpp");
  EXPECT_EQ(records[0].fileID(), "Kit/File.cpp");
  // Without a usable module the executable names the file's module.
  EXPECT_EQ(records[1].fileID(), executableName() + "/File.cpp");
}

int evaluations = 0;
int countedValue() {
  ++evaluations;
  return 1;
}

TEST(AssertionMacros, BuildTheThreeMessageFormsAndNothingWhenTheConditionHolds) {
  evaluations = 0;
  QENCapturedAssertions captured;
  const int* string = nullptr;
  const int line = __LINE__ + 1;
  QENAssertNotNil(string, "+[BinaryAnnotation(QENAdditions) annotationWithKey:string:]");
  QENParameterAssert(false, "metricName", "-[QENMeasuredTask initWithName:]");
  QENAssert(false, "-[X y]", "Metric stop time %f must be greater than %d", 1.5, countedValue());
  QENAssert(true, "-[X y]", "never %d", countedValue());
  QENAssertNotNil(&line, "-[X y]");

  EXPECT_EQ(evaluations, 1) << "a passing assertion must not build its message";
  const auto records = captured.records();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].message, "The following expression must not evaluate to nil: string");
  EXPECT_EQ(records[0].method, "+[BinaryAnnotation(QENAdditions) annotationWithKey:string:]");
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[0].filePath, __FILE__);
  EXPECT_EQ(records[0].fileID(), executableName() + "/QENAssertionFailureReportTests.cpp");
  EXPECT_EQ(records[1].message, "Invalid parameter not satisfying: metricName");
  EXPECT_EQ(records[2].message, "Metric stop time 1.500000 must be greater than 1");

  QENFoundationDevLogger::setFoundationAssertsLoggingEnabled(false);
  QENAssert(false, "-[X y]", "silent %d", countedValue());
  QENFoundationDevLogger::setFoundationAssertsLoggingEnabled(true);
  EXPECT_EQ(captured.records().size(), 3u) << "nothing logged or built while logging is off";
  EXPECT_EQ(evaluations, 1);
}

}  // namespace
