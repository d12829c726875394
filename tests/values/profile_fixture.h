// Each test writes its own regional profile and reloads the number and
// currency settings from it, so no test sees another's or the user's.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "values/currency.h"

class ProfileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char dir[] = "/tmp/dbfile-values-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        UseIntl("");
    }
    void TearDown() override {
        setenv("DBFILE_PROFILE", (dir_ + "/absent.ini").c_str(), 1);
        Reload();
        std::filesystem::remove_all(dir_);
    }
    // Writes the whole profile file and reloads the settings.
    void Use(const std::string& text) {
        WriteProfile(text);
        Reload();
    }
    // A profile of one [intl] section holding `lines`.
    void UseIntl(const std::string& lines) { Use("[intl]\n" + lines); }
    void WriteProfile(const std::string& text) {
        std::ofstream(Path(), std::ios::binary) << text;
        setenv("DBFILE_PROFILE", Path().c_str(), 1);
    }
    static void Reload() { Currency().LoadIntlSettings(); }
    std::string Path() const { return dir_ + "/profile.ini"; }

    std::string dir_;
};
