# Reads the disassembly (Intel syntax) of one object and tells each instruction that a processor of
# the object's instruction set need not have. -v allowed: the sets beyond SSE2, as "+sse3+ssse3".

function define(set, names,   list, n, i) {
  n = split(names, list, " ")
  for (i = 1; i <= n; ++i) set_of[list[i]] = set
}

BEGIN {
  prefix = "^(rep|repz|repnz|lock|data16|addr32|cs|ds|es|fs|gs|ss|notrack|bnd|rex[.WRXB]*) +"
  define("sse3", "addsubpd addsubps haddpd haddps hsubpd hsubps lddqu movddup movshdup movsldup " \
                 "fisttp monitor mwait")
  define("ssse3", "pshufb phaddw phaddd phaddsw pmaddubsw phsubw phsubd phsubsw psignb psignw " \
                  "psignd pmulhrsw palignr pabsb pabsw pabsd")
  define("sse41", "pblendw pblendvb blendps blendpd blendvps blendvpd dpps dppd extractps " \
                  "insertps mpsadbw movntdqa packusdw pcmpeqq pextrb pextrd pextrq phminposuw " \
                  "pinsrb pinsrd pinsrq pmaxsb pmaxsd pmaxud pmaxuw pminsb pminsd pminud pminuw " \
                  "pmovsxbw pmovsxbd pmovsxbq pmovsxwd pmovsxwq pmovsxdq pmovzxbw pmovzxbd " \
                  "pmovzxbq pmovzxwd pmovzxwq pmovzxdq pmuldq pmulld ptest roundps roundpd " \
                  "roundss roundsd")
  define("sse42", "crc32 pcmpgtq pcmpestri pcmpestrm pcmpistri pcmpistrm")
  define("popcnt", "popcnt")
  # tzcnt is missing on purpose: its encoding is that of bsf with a prefix that old processors pass
  # over, and compilers emit it for operands that are not 0, where both give the same.
  define("bmi", "lzcnt andn bextr blsi blsmsk blsr bzhi mulx pdep pext rorx sarx shlx shrx")
  define("other", "movbe cmpxchg16b lahf sahf adcx adox aesenc aesenclast aesdec aesdeclast " \
                  "aesimc aeskeygenassist pclmulqdq gf2p8mulb gf2p8affineqb gf2p8affineinvqb " \
                  "sha1rnds4 sha1nexte sha1msg1 sha1msg2 sha256rnds2 sha256msg1 sha256msg2 " \
                  "(bad) extrq insertq movntsd movntss prefetchw prefetchwt1 clflushopt clwb rdrand " \
                  "rdseed rdpid rdtscp rdfsbase rdgsbase wrfsbase wrgsbase xsave xsaveopt xsavec " \
                  "xrstor xbegin xend xabort xtest clzero movdiri movdir64b serialize")
  define("detection", "cpuid xgetbv")
  define("f16c", "vcvtph2ps vcvtps2ph")
}

function set_of_instruction(name, operands) {
  if (operands ~ /zmm|[xy]mm(1[6-9]|2[0-9]|3[01])|\{|(^|,)k[0-7](,|$)/) return "avx512"
  if (name in set_of) return set_of[name]
  if (name ~ /^vfn?m(add|sub)/) return "fma"
  if (name ~ /^v/ || operands ~ /ymm/) return "avx"
  # To a register it belongs to SSE2, to memory only the later encoding goes.
  if (name == "pextrw" && operands ~ /^WORD PTR/) return "sse41"
  return "sse2"
}

/^ +[0-9a-f]+:\t/ {
  ++instructions
  text = $0
  sub(/^ +[0-9a-f]+:\t/, "", text)
  sub(/ *#.*/, "", text)
  while (text ~ prefix) sub(prefix, "", text)
  name = text
  sub(/ .*/, "", name)
  operands = text
  sub(/^[^ ]+ */, "", operands)
  set = set_of_instruction(name, operands)
  if (set != "sse2" && index(allowed "+", "+" set "+") == 0 && !((set, name) in told)) {
    told[set, name] = 1
    printf "%s: %s (%s)\n", object, text, set
    bad = 1
  }
}

END {
  # An object without code is fine, what is no disassembly is not.
  if (!is_disassembly) print object ": no disassembly"
  printf "%s: %d instructions\n", object, instructions
  exit bad || !is_disassembly
}

/file format/ { is_disassembly = 1 }
