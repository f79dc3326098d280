#include "os/path.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using test::wide;

using test::ScopedEnv;

} // namespace

TEST(PathMacros, ExpandAtTheStartOnlyWithBothSeparators)
{
    test::PrivateHome home;
    os::init_path_macros();
    fs::path exe = fs::read_symlink("/proc/self/exe");
    std::wstring app_path = wide(exe.parent_path());

    EXPECT_EQ(os::macro_value(L"%app_full_name%"), wide(exe));
    EXPECT_EQ(os::macro_value(L"%app_name%"), wide(exe.filename()));
    EXPECT_EQ(os::macro_value(L"%app_path%"), app_path);
    EXPECT_EQ(os::macro_value(L"%program_files%"), wide(exe.parent_path().parent_path()));
    EXPECT_EQ(os::macro_value(L"%app_data%"), wide(home.app_data()));
    EXPECT_EQ(os::macro_value(L"%startup%"), wide(home.config() / "autostart"));
    EXPECT_EQ(os::macro_value(L"%programs%"), wide(home.root() / "data" / "applications"));
    EXPECT_EQ(os::macro_value(L"%start_menu%"), wide(home.root() / "data" / "applications"));
    EXPECT_EQ(os::macro_value(L"%windows%"), L"/usr/share");
    EXPECT_EQ(os::macro_value(L"%nonsense%"), L"");

    EXPECT_EQ(os::expand_path(L"%app_path%/Quillaphonics.xml"), app_path + L"/Quillaphonics.xml");
    EXPECT_EQ(os::expand_path(L"%app_path%\\skins\\Default.skin"), app_path + L"/skins/Default.skin");
    EXPECT_EQ(os::expand_path(L"%app_full_name%.txt"), wide(exe) + L".txt");
    EXPECT_EQ(os::expand_path(L"x/%app_path%"), L"x/%app_path%");
    EXPECT_EQ(os::expand_path(L"x\\%app_path%\\y"), L"x/%app_path%/y");
    EXPECT_EQ(os::expand_path(L" %app_path%"), L" %app_path%");
    EXPECT_EQ(os::expand_path(L""), L"");
    EXPECT_EQ(os::expand_path(L"\\\\server\\share"), L"//server/share");

    // Names beyond ASCII pass through whole, and reach the kernel as UTF-8.
    std::wstring name = L"%app_data%\\Grüße\\Ωμέγα \U0001D11E.wav";
    EXPECT_EQ(os::expand_path(name), wide(home.app_data()) + L"/Grüße/Ωμέγα \U0001D11E.wav");
    EXPECT_EQ(os::native_path(name),
              (home.app_data() / "Grüße" / "Ωμέγα \xF0\x9D\x84\x9E.wav").string());
    ASSERT_TRUE(os::create_folders(os::folder_of(name)));
    EXPECT_TRUE(fs::is_directory(home.app_data() / "Grüße"));
}

TEST(PathMacros, FollowTheEnvironment)
{
    test::PrivateHome home;
    fs::path home_dir = home.root() / "home";
    {
        // A configuration folder with a non-ASCII name.
        fs::path config = home.root() / "cönfig";
        ScopedEnv e("XDG_CONFIG_HOME", config.c_str());
        os::init_path_macros();
        EXPECT_EQ(os::macro_value(L"%app_data%"), wide(config / "quillaphonics"));
        EXPECT_EQ(os::expand_path(L"%app_data%\\a"), wide(config / "quillaphonics" / "a"));
    }
    {
        // A relative XDG value does not count; unset, the default stands.
        ScopedEnv e("XDG_CONFIG_HOME", "relative/config");
        os::init_path_macros();
        EXPECT_EQ(os::macro_value(L"%app_data%"), wide(home_dir / ".config" / "quillaphonics"));
        ::unsetenv("XDG_DATA_HOME");
        os::init_path_macros();
        EXPECT_EQ(os::macro_value(L"%programs%"), wide(home_dir / ".local/share/applications"));
    }
    os::init_path_macros();
    EXPECT_EQ(os::macro_value(L"%app_data%"), wide(home.app_data()));
}

TEST(PathMacros, DocumentsFolderFromUserDirsElseDocumentsElseHome)
{
    test::PrivateHome home;
    fs::path home_dir = home.root() / "home";
    os::init_path_macros();
    EXPECT_EQ(os::macro_value(L"%my_documents%"), wide(home_dir));

    fs::create_directories(home_dir / "Documents");
    os::init_path_macros();
    EXPECT_EQ(os::macro_value(L"%my_documents%"), wide(home_dir / "Documents"));

    // As xdg-user-dirs-update writes it.
    test::write_file(home.config() / "user-dirs.dirs",
                     "# written by xdg-user-dirs-update\n"
                     "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
                     "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n"
                     "XDG_MUSIC_DIR=\"$HOME/Musik\"\n");
    os::init_path_macros();
    EXPECT_EQ(os::macro_value(L"%my_documents%"), wide(home_dir / "Dokumente"));
    EXPECT_EQ(os::expand_path(L"%my_documents%\\Aufnahme 1.wav"),
              wide(home_dir / "Dokumente" / "Aufnahme 1.wav"));

    test::write_file(home.config() / "user-dirs.dirs",
                     "XDG_DOCUMENTS_DIR=\"/srv/Öffentlich/Docs/\"\n");
    os::init_path_macros();
    EXPECT_EQ(os::macro_value(L"%my_documents%"), L"/srv/Öffentlich/Docs");

    // A value that is neither absolute nor below $HOME is not taken.
    test::write_file(home.config() / "user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"docs\"\n");
    os::init_path_macros();
    EXPECT_EQ(os::macro_value(L"%my_documents%"), wide(home_dir / "Documents"));
}

TEST(PathArithmetic, PiecesOfPathsWithEitherSeparator)
{
    EXPECT_EQ(os::strip_trailing_separator(L"a/b/"), L"a/b");
    EXPECT_EQ(os::strip_trailing_separator(L"a\\b\\"), L"a\\b");
    EXPECT_EQ(os::strip_trailing_separator(L"a/b"), L"a/b");
    EXPECT_EQ(os::strip_trailing_separator(L""), L"");

    EXPECT_EQ(os::folder_of(L"/music/a.mp3"), L"/music/");
    EXPECT_EQ(os::folder_of(L"C:\\music\\a.mp3"), L"C:\\music\\");
    EXPECT_EQ(os::folder_of(L"a/b\\c.wav"), L"a/b\\");
    EXPECT_EQ(os::folder_of(L"a.mp3"), L"");

    EXPECT_EQ(os::file_name_of(L"/music/a.mp3"), L"a.mp3");
    EXPECT_EQ(os::file_name_of(L"x\\Grüße.wav"), L"Grüße.wav");
    EXPECT_EQ(os::file_name_of(L"a.mp3"), L"a.mp3");
    EXPECT_EQ(os::file_name_of(L"/music/"), L"");

    EXPECT_EQ(os::extension_of(L"/music/a.b.MP3"), L"MP3");
    EXPECT_EQ(os::extension_of(L"/music.d/readme"), L"");
    EXPECT_EQ(os::extension_of(L"folder.x\\name"), L"");
    EXPECT_EQ(os::extension_of(L"ends."), L"");

    EXPECT_EQ(os::parent_of(L"/a/b/c/"), L"/a/b/");
    EXPECT_EQ(os::parent_of(L"/a/b/c"), L"/a/b/");
    EXPECT_EQ(os::parent_of(L"a\\b\\"), L"a\\");
    EXPECT_EQ(os::parent_of(L"a"), L"");

    EXPECT_EQ(os::join_path(L"", L"a"), L"a");
    EXPECT_EQ(os::join_path(L"b\\", L"a"), L"b/a");
    EXPECT_EQ(os::join_path(L"b/", L"a"), L"b/a");
    EXPECT_EQ(os::join_path(L"b", L"a"), L"b/a");
    EXPECT_EQ(os::join_path(L"b//", L"\\a"), L"b/a");
    EXPECT_EQ(os::join_path(L"/", L"a"), L"/a");
    EXPECT_EQ(os::join_path(L"%app_data%", L"registry.xml"), L"%app_data%/registry.xml");
    EXPECT_EQ(os::join_path(L"b", L""), L"b/");
}

TEST(PathArithmetic, SamePathComparesNormalisedFormsExactly)
{
    test::PrivateHome home;
    os::init_path_macros();
    struct Case {
        const wchar_t* a;
        const wchar_t* b;
        bool same;
    } cases[] = {
        {L"/music/a.mp3", L"\\music\\a.mp3", true},
        {L"/music//a.mp3", L"/music/a.mp3", true},
        {L"/music/", L"/music", true},
        {L"/music/./a.mp3", L"/music/a.mp3", true},
        {L"/music/x/../a.mp3", L"/music/a.mp3", true},
        {L"/music/x/y/../../a.mp3", L"/music/a.mp3", true},
        {L"/../music", L"/music", true},
        {L"a/..", L".", true},
        {L"./a", L"a", true},
        {L"../a", L"a", false},
        {L"a/../../b", L"../b", true},
        {L"/Music/a.mp3", L"/music/a.mp3", false},
        {L"/music/a.mp3", L"/music/a.mp", false},
        {L"/music/Grüße.wav", L"\\music\\\\Grüße.wav", true},
        {L"/", L"//", true},
        {L"", L".", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(os::same_path(c.a, c.b), c.same) << liba::to_utf8(c.a) << " vs " << liba::to_utf8(c.b);

    std::wstring data = wide(home.app_data());
    EXPECT_TRUE(os::same_path(L"%app_data%\\registry.xml", data + L"/registry.xml"));
    EXPECT_TRUE(os::same_path(L"%app_data%/x/../registry.xml/", data + L"//registry.xml"));
    EXPECT_EQ(os::normalize_path(L"\\a\\\\b\\.\\c\\..\\"), L"/a/b");
}

TEST(PathArithmetic, MakeAbsoluteAndCreateFolders)
{
    test::PrivateHome home;
    os::init_path_macros();
    EXPECT_EQ(os::make_absolute(L"b\\c.mp3", L"/lists/"), L"/lists/b/c.mp3");
    EXPECT_EQ(os::make_absolute(L"../music/c.mp3", L"/lists/sub"), L"/lists/music/c.mp3");
    EXPECT_EQ(os::make_absolute(L"./c.mp3", L"%app_data%"), wide(home.app_data() / "c.mp3"));
    EXPECT_EQ(os::make_absolute(L"/abs/./x.mp3", L"/lists"), L"/abs/./x.mp3");
    EXPECT_EQ(os::make_absolute(L"%app_data%\\x.mp3", L"/lists"), L"%app_data%\\x.mp3");
    EXPECT_EQ(os::make_absolute(L"\\abs\\x.mp3", L"/lists"), L"\\abs\\x.mp3");

    fs::path deep = home.root() / "a" / "b c" / "ü";
    EXPECT_TRUE(os::create_folders(wide(deep) + L"\\d\\"));
    EXPECT_TRUE(fs::is_directory(deep / "d"));
    EXPECT_TRUE(os::create_folders(wide(deep))); // exists already

    test::write_file(home.root() / "file", "x");
    EXPECT_FALSE(os::create_folders(wide(home.root() / "file" / "sub")));
    EXPECT_FALSE(os::create_folders(L""));
}

TEST(PathArithmetic, EnsureAppDataCreatesOrSaysWhy)
{
    test::PrivateHome home;
    fs::remove_all(home.config());
    os::init_path_macros();
    liba::ErrorBase errors;
    EXPECT_TRUE(os::ensure_app_data(&errors));
    EXPECT_TRUE(fs::is_directory(home.app_data()));
    EXPECT_TRUE(errors.good());

    // A file where the configuration folder should be.
    fs::remove_all(home.config());
    test::write_file(home.config(), "in the way");
    EXPECT_FALSE(os::ensure_app_data(&errors));
    ASSERT_EQ(errors.errors().size(), 1u);
    EXPECT_NE(errors.errors()[0].find(L"can't create"), std::wstring::npos);
    EXPECT_NE(errors.errors()[0].find(wide(home.app_data())), std::wstring::npos);
    EXPECT_FALSE(os::ensure_app_data());
}

TEST(PathArithmetic, RuntimeFolderIsPrivateAndOurs)
{
    test::PrivateHome home;
    EXPECT_EQ(os::runtime_dir(), wide(home.runtime()));
    {
        ScopedEnv e("XDG_RUNTIME_DIR", "");
        std::wstring dir = os::runtime_dir();
        EXPECT_EQ(dir, L"/tmp/quillaphonics-" + std::to_wstring(::getuid()));
        struct stat st;
        ASSERT_EQ(::lstat(liba::to_utf8(dir).c_str(), &st), 0);
        EXPECT_TRUE(S_ISDIR(st.st_mode));
        EXPECT_EQ(st.st_mode & 0777, 0700u);
    }

    // The checks themselves, on folders of the test's own.
    fs::path made = home.root() / "priv";
    EXPECT_EQ(os::private_folder(wide(made)), wide(made));
    EXPECT_EQ(fs::status(made).permissions(), fs::perms::owner_all);

    fs::path wide_open = home.root() / "open";
    fs::create_directory(wide_open);
    ::chmod(wide_open.c_str(), 0777);
    EXPECT_EQ(os::private_folder(wide(wide_open)), wide(wide_open));
    EXPECT_EQ(fs::status(wide_open).permissions(), fs::perms::owner_all);

    fs::path link = home.root() / "link";
    fs::create_directory_symlink(made, link);
    EXPECT_EQ(os::private_folder(wide(link)), L"");

    fs::path file = home.root() / "plain";
    test::write_file(file, "x");
    EXPECT_EQ(os::private_folder(wide(file)), L"");

    if (::geteuid() == 0) {
        fs::path theirs = home.root() / "theirs";
        fs::create_directory(theirs);
        ASSERT_EQ(::chown(theirs.c_str(), 65534, 65534), 0);
        EXPECT_EQ(os::private_folder(wide(theirs)), L"");
    }
}
