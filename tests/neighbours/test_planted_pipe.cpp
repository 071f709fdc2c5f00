// A pipe in place of a file that root reads: opened without a thought, it would hold root for ever.
#include <cstdlib>

#include "conffile.h"
#include "world.h"

namespace neighbours {
namespace {

TEST_F(Neighbours, pipe_in_place_of_a_configuration_does_not_hang_its_reader) {
    Scene scene;
    scene.prepare = [&] {
        renew();
        as_neighbour([&] {
            write_file(home("app.conf"), "[a]\nkey=value\n");
            plant_pipe(home("pipe"));
        });
    };
    scene.victim = [&]() -> int64_t {
        char *cache = nullptr;
        const int32_t result = Cache_Conf_File(home("app.conf").c_str(), &cache);
        std::free(cache);
        return result;
    };
    scene.attack = [&] { exchange(home("pipe"), home("app.conf")); };
    scene.judge = [&](const Answer &answer) {
        EXPECT_TRUE(answer.ended());
        EXPECT_EQ(vault.changes(), "");
    };

    EXPECT_GE(at_every_call(neighbour, scene), 4);
}

}  // namespace
}  // namespace neighbours
