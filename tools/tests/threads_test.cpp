// --threads and QX_NUM_THREADS: the same files, byte for byte, whatever they say.
#include "support.hpp"

#include <gtest/gtest.h>

#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

using words = std::vector<std::string>;

struct threaded_mesh {
    const char *mesh, *ending;
    int order;
    bool flat;
};

std::ostream &operator<<(std::ostream &out, const threaded_mesh &mesh)
{
    return out << mesh.mesh << " of order " << mesh.order;
}

const threaded_mesh threaded_meshes[] = {
    {"uniform", ".vti", 1, false}, {"rectilinear", ".vtr", 1, false}, {"curvilinear", ".vts", 1, false},
    {"hex", ".vtu", 1, false},     {"prism", ".vtu", 1, false},       {"pyramid", ".vtu", 1, false},
    {"tet", ".vtu", 1, false},     {"hex", ".vtu", 2, false},         {"tet", ".vtu", 2, false},
    {"uniform", ".vti", 1, true},  {"quad", ".vtu", 1, true},         {"tri", ".vtu", 2, true},
};

std::string sample_of(const threaded_mesh &mesh, const char *sample)
{
    std::string path = scratch("in" + std::string(mesh.ending));
    words arguments = {"sample", sample, "--mesh", mesh.mesh, "--order", std::to_string(mesh.order),
                       "--size", "11"};
    if (mesh.flat) arguments.insert(arguments.end(), {"11", "1"});
    arguments.insert(arguments.end(), {"-o", path});
    run_well(arguments);
    return path;
}

// What a command writes by so many threads.
std::string written_by(int threads, words arguments, const char *ending)
{
    const std::string out = scratch("out" + std::string(ending));
    arguments.insert(arguments.end(), {"-o", out, "--threads", std::to_string(threads)});
    run_well(arguments);
    return bytes_of(out);
}

void expect_the_same_file(const words &arguments, const char *ending)
{
    const std::string one = written_by(1, arguments, ending);
    EXPECT_FALSE(one.empty());
    for (const int threads : {2, 7, 100})
        EXPECT_TRUE(written_by(threads, arguments, ending) == one) << arguments[0] << " by " << threads;
}

class ThreadsOnMeshes : public testing::TestWithParam<threaded_mesh> {};

TEST_P(ThreadsOnMeshes, GiveTheFileOfOne)
{
    const threaded_mesh &mesh = GetParam();
    const std::string in = sample_of(mesh, "noisy-sphere");
    expect_the_same_file({mesh.flat ? "isoline" : "iso", in, "-l", "0.1,0.4"}, ".vtp");
    expect_the_same_file({"cut", in, "-l", "0.2", "--side", "high"}, ".vtu");
    expect_the_same_file({"cut", in, "-l", "0.2", "--side", "low"}, ".vtu");
    expect_the_same_file({"probe", in, "--grid", "9", "9", mesh.flat ? "1" : "9"}, ".vti");
}

INSTANTIATE_TEST_SUITE_P(Meshes, ThreadsOnMeshes, testing::ValuesIn(threaded_meshes));

} // namespace

TEST(Threads, TraceTheSameLines)
{
    for (const char *mesh : {"uniform", "hex", "tet"}) {
        const threaded_mesh of = {mesh, mesh == std::string("uniform") ? ".vti" : ".vtu", 1, false};
        const std::string in = sample_of(of, "abc-flow");
        for (const words &more : {words{}, words{"--both", "--ribbon", "0.1"}}) {
            words arguments = {"stream", in, "--seeds-random", "23"};
            arguments.insert(arguments.end(), more.begin(), more.end());
            expect_the_same_file(arguments, ".vtp");
        }
    }
}

// Stacks so large that there is room for one or two of the threads, and none.
TEST(Threads, ThatCannotBeHadLeaveTheirShareToOthers)
{
    const std::string in = sample_of(threaded_meshes[3], "abc-flow"), out = scratch("lines.vtp");
    const words arguments = {"stream", in, "--seeds-random", "40", "-o", out, "--threads"};
    const auto by = [&](const char *threads) {
        words all = arguments;
        all.push_back(threads);
        return run(all);
    };
    ASSERT_EQ(by("1").code, 0);
    const std::string lines = bytes_of(out);
    rlimit space, stack;
    getrlimit(RLIMIT_AS, &space);
    getrlimit(RLIMIT_STACK, &stack);
    for (const rlim_t room : {rlim_t{1} << 32, rlim_t{5} << 30}) {
        rlimit small = space, large = stack;
        small.rlim_cur = room;
        large.rlim_cur = rlim_t{2} << 30;
        ASSERT_EQ(setrlimit(RLIMIT_STACK, &large), 0);
        ASSERT_EQ(setrlimit(RLIMIT_AS, &small), 0);
        const ran result = by("16");
        setrlimit(RLIMIT_AS, &space);
        setrlimit(RLIMIT_STACK, &stack);
        EXPECT_EQ(result.code, 0) << shown(result);
        EXPECT_TRUE(bytes_of(out) == lines);
    }
}

TEST(Threads, SpreadTheSameValues)
{
    const std::string points = scratch("points.csv");
    std::string text = "x,y,z,v\n";
    random_numbers random(3);
    for (int i = 0; i < 200; ++i)
        for (const char *behind : {",", ",", ",", "\n"})
            text += std::to_string(random.next()) + behind;
    write_bytes(points, text);
    expect_the_same_file({"scatter", points, "--array", "v", "--size", "9,8,7"}, ".vti");
}

TEST(Threads, AreACountOfOneAndMore)
{
    const std::string in = sample_of(threaded_meshes[0], "noisy-sphere"), out = scratch("out.vtp");
    for (const char *wrong : {"0", "-2", "many", "2.5", ""}) {
        const ran result = run({"iso", in, "-l", "0", "-o", out, "--threads", wrong});
        EXPECT_EQ(result.code, 2) << shown(result);
        EXPECT_NE(result.err.find("--threads"), std::string::npos) << shown(result);
    }
}

TEST(Threads, OfTheEnvironmentHoldUnlessTheOptionIsGiven)
{
    const std::string in = sample_of(threaded_meshes[3], "noisy-sphere"), out = scratch("out.vtp");
    const words command = {"iso", in, "-l", "0", "-o", out};
    const auto by_variable = [&](const std::string &value, const words &more = {}) {
        words arguments = command;
        arguments.insert(arguments.end(), more.begin(), more.end());
        surroundings around;
        around.set = {"QX_NUM_THREADS=" + value};
        const ran result = run(arguments, around);
        EXPECT_EQ(result.code, 0) << shown(result);
        return result.err;
    };
    EXPECT_EQ(by_variable("3"), "");
    for (const char *wrong : {"0", "-1", "many", "3x", "", "99999999999999999999"}) {
        const std::string note = "note: QX_NUM_THREADS is \"" + std::string(wrong) + "\"";
        const std::string said = by_variable(wrong);
        EXPECT_EQ(said.find(note), 0u) << said;
        EXPECT_EQ(said.find(note, 1), std::string::npos) << said; // once
        EXPECT_EQ(by_variable(wrong, {"--threads", "2"}), "");
        EXPECT_EQ(by_variable(wrong, {"--quiet"}), "");
    }
}
