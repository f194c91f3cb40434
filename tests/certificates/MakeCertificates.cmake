# cmake -DOPENSSL=… -DFOLDER=… -P MakeCertificates.cmake: the certificates, in DER.

function(run_openssl)
  execute_process(
    COMMAND "${OPENSSL}" ${ARGN}
    RESULT_VARIABLE result
    OUTPUT_QUIET
    ERROR_VARIABLE error)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${OPENSSL} ${ARGN}\n${error}")
  endif()
endfunction()

# make_certificate(NAME SUBJECT KIND_OF_KEY...): signed by its own key.
function(make_certificate name subject)
  run_openssl(
    req
    -x509
    -newkey
    ${ARGN}
    -noenc
    -utf8
    -subj
    "${subject}"
    -days
    3650
    -keyout
    "${FOLDER}/${name}.key"
    -outform
    DER
    -out
    "${FOLDER}/${name}.der")
endfunction()

# make_unsigned(NAME COMMON_NAME LAST_YEAR): what openssl refuses to sign, a name beyond 64 characters or a time that is
# over. The signature is zero, which nobody checks who only reads a certificate.
function(make_unsigned name COMMON_NAME LAST_YEAR)
  configure_file("${CMAKE_CURRENT_LIST_DIR}/Unsigned.cnf.in" "${FOLDER}/${name}.cnf" @ONLY)
  run_openssl(asn1parse -genconf "${FOLDER}/${name}.cnf" -noout -out "${FOLDER}/${name}.der")
endfunction()

set(ec ec -pkeyopt ec_paramgen_curve:prime256v1)

make_certificate(rsa "/CN=Example help desk & Co" rsa:2048)
make_certificate(ec "/CN=Example help desk, EC" ${ec})
make_certificate(organisation "/O=Example Support Ltd" ${ec})
make_certificate(nameless "/" ${ec})
make_certificate(foreign "/CN=Prüfstelle Żółć 証明書" ${ec})
make_certificate(twin-1 "/CN=Twin" ${ec})
make_certificate(twin-2 "/CN=Twin" ${ec})
make_certificate(candidate "/CN=a c" ${ec})
make_certificate(short "/CN=A" ${ec})
string(REPEAT "abcdefghi " 24 long_name)
make_unsigned(long "${long_name}abcdefghij" 49)
make_unsigned(expired "Expired" 01)
