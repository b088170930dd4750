// hylorn: keys, requests, certificates, CRLs and a small certification authority, built
// on the library's public interface alone.
#include <CLI/CLI.hpp>
#include <iostream>

#include "common.h"

int main(int argc, char** argv) {
  CLI::App app{
      "hylorn: RSA keys, PKCS #10 requests, X.509 certificates and CRLs, and a small\n"
      "certification authority kept in SQLite. Inputs may be PEM or DER; outputs are PEM\n"
      "unless --outform der is given. Run 'hylorn COMMAND --help' for each command."};
  app.name("hylorn");
  app.require_subcommand(1);
  app.fallthrough(false);
  Crypt_InitEnvironment();
  using namespace hylorn_tool;
  add_key_commands(app);
  add_req_command(app);
  add_ca_commands(app);
  add_show_command(app);
  add_verify_commands(app);
  int status = 0;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    status = app.exit(e);
  } catch (const ToolError& e) {
    std::cerr << "hylorn: " << e.what() << "\n";
    status = 1;
  } catch (const std::exception& e) {
    std::cerr << "hylorn: unexpected failure: " << e.what() << "\n";
    status = 1;
  }
  Crypt_ClearEnvironment();
  return status;
}
