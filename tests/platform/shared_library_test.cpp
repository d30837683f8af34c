#include "platform/shared_library.h"

#include <filesystem>
#include <locale>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"

using morva::test::TempDir;
using osmik::SharedLibrary;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const int inThisProgram = 0;

// An object that the standard library keeps in its own memory.
const void* inStandardLibrary() {
  return &std::use_facet<std::ctype<char>>(std::locale::classic());
}

}  // namespace

TEST(SharedLibraryFileOf, IsTheProgramForItsOwnData) {
  EXPECT_EQ(SharedLibrary::fileOf(&inThisProgram), std::filesystem::read_symlink("/proc/self/exe"));
}

TEST(SharedLibraryFileOf, IsTheLibraryForItsData) {
  const std::string file = SharedLibrary::fileOf(inStandardLibrary());
  EXPECT_THAT(file, StartsWith("/"));
  EXPECT_THAT(file, HasSubstr("libstdc++.so"));
}

TEST(SharedLibraryFileOf, IsEmptyForAnAddressOfNobody) {
  EXPECT_EQ(SharedLibrary::fileOf(nullptr), "");
}

class SharedLibraryLoadSymbol : public testing::Test {
 protected:
  TempDir dir;
  std::string error;
};

TEST_F(SharedLibraryLoadSymbol, FindsASymbol) {
  const std::string library = SharedLibrary::fileOf(inStandardLibrary());
  EXPECT_NE(SharedLibrary::loadSymbol(library, "__cxa_throw", &error), nullptr) << error;
}

TEST_F(SharedLibraryLoadSymbol, MissingSymbolIsNamed) {
  const std::string library = SharedLibrary::fileOf(inStandardLibrary());
  EXPECT_EQ(SharedLibrary::loadSymbol(library, "no_such_symbol", &error), nullptr);
  EXPECT_THAT(error, HasSubstr("no_such_symbol"));
}

TEST_F(SharedLibraryLoadSymbol, WhatIsNoLibraryIsRefused) {
  EXPECT_EQ(SharedLibrary::loadSymbol(dir / "a.so", "f", &error), nullptr);
  EXPECT_THAT(error, HasSubstr("No such file or directory"));
  morva::test::writeFile(dir / "a.so", "no library");
  EXPECT_EQ(SharedLibrary::loadSymbol(dir / "a.so", "f", &error), nullptr);
  EXPECT_THAT(error, HasSubstr("file too short"));
}

TEST_F(SharedLibraryLoadSymbol, NamesAreNotSoughtInTheSystem) {
  for (const char* const path : {"libc.so.6", "./libc.so.6", ""}) {
    EXPECT_EQ(SharedLibrary::loadSymbol(path, "malloc", &error), nullptr);
    EXPECT_THAT(error, HasSubstr("not an absolute path"));
  }
}
