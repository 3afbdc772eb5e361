// Draws a synthetic network as a job folder:
//
//   cardo_draw_network FOLDER --layout dome --images 100 --points 5000 --rays 20
//   cardo_draw_network FOLDER --layout grid --images 500 --points 50000 --rays 8 --pool 24

#include "drawn_network.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <fmt/format.h>
#include <map>
#include <string>

int main(int argc, char** argv) {
  using cardo::bench::Layout;
  CLI::App app("Draws a synthetic network as a job folder.");
  cardo::bench::NetworkPlan plan{.images = 100, .points = 5000, .rays = 20, .pool = 24};
  std::string folder;
  app.add_option("folder", folder, "made if it does not exist")->required();
  app.add_option("--layout", plan.layout, "dome or grid")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, Layout>{{"dome", Layout::kDome}, {"grid", Layout::kGrid}}));
  app.add_option("--images", plan.images)->check(CLI::PositiveNumber);
  app.add_option("--points", plan.points)->check(CLI::PositiveNumber);
  app.add_option("--rays", plan.rays, "of every point")->check(CLI::PositiveNumber);
  app.add_option("--pool", plan.pool, "nearest images that a point of the grid is drawn from");
  app.add_option("--seed", plan.seed);
  CLI11_PARSE(app, argc, argv);
  try {
    cardo::bench::DrawNetwork(plan, folder);
  } catch (const std::exception& failure) {
    fmt::print(stderr, "cardo_draw_network: {}\n", failure.what());
    return 1;
  }
  return 0;
}
