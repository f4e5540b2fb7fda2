// lvhdr's subcommands. Each takes the whole argv (argv[1] is its name) and returns the
// process exit code.
#pragma once

namespace lvhdr {

int cmd_merge(int argc, char **argv);
int cmd_tonemap(int argc, char **argv);
int cmd_info(int argc, char **argv);
int cmd_demo(int argc, char **argv);
int cmd_convert(int argc, char **argv);
int cmd_mirrorball(int argc, char **argv);
int cmd_probe(int argc, char **argv);
int cmd_view(int argc, char **argv);
int cmd_fuse(int argc, char **argv);
int cmd_finish(int argc, char **argv);
int cmd_single(int argc, char **argv);
int cmd_report(int argc, char **argv);

} // namespace lvhdr
