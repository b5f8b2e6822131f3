# zdefaultlinkplugin.sh TARGET COMMAND...: links a plugin, and says what to do if that fails.
target=$1
shift
"$@" && exit
status=$?
echo "zdefault_add_plugin($target): a plugin must be complete. For a symbol that is undefined above, add the source that
defines it, or link the library: target_link_libraries($target PRIVATE ...)." >&2
exit $status
