# The external operator of tests/tool/serve_test.cpp, run by qklmsg serve
# --operator: the request message as XML text on standard input, the operator
# element of the answer on standard output. What it does depends on <scope>.
request=$(cat)
scope=$(printf '%s\n' "$request" | sed -n 's/.*<scope>\([^<]*\)<\/scope>.*/\1/p')
case "$scope" in
  exit3) exit 3 ;;
  slow) sleep 30 ;;
  garbage) echo 'no element at all' ;;
  error) echo '<envm><error>disk full</error><error>retry later</error></envm>' ;;
  inflight) echo 'operator: in flight' >&2; sleep 0.5; echo '<envm><env>late</env></envm>' ;;
  *) printf '<envm><env>%s</env><env>%s bytes in</env></envm>\n' "$scope" "${#request}" ;;
esac
