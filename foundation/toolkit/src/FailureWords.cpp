#include "FailureWords.hpp"

namespace foundation::toolkit {

namespace {

struct BeginningWords
{
    std::string_view beginning;
    Words words;
};

constexpr Words movedFrom{
    "The object was moved from and holds nothing.", "Look for a std::move of the object before this call.",
    "Use the object that took its content, or assign a new value."};
constexpr Words nothingToLoad{
    "There is nothing to load.", "Print the size of the input before you load it.",
    "Check that the file exists, is not empty and was read."};
constexpr Words unreadInput{
    "The input could not be read.",
    "Test the stream right after you open it: it is false if the file cannot be read.",
    "Check that the file exists and may be read, and that the stream is good."};
constexpr Words largeInput{
    "The input is larger than 2 GiB, or memory ran out.",
    "Compare the size of the input with 2 GiB and with the memory that is free.",
    "Load a smaller input, or free memory and try again."};
constexpr Words unsupportedKey{
    "The key is of a kind that this class does not support.",
    "openssl x509 -in FILE -noout -text shows the kind of the key.",
    "Use the toolkit's Certificate, which takes any key."};
constexpr Words emptyNumber{
    "A number of the key is empty.", "openssl x509 -in FILE -noout -text shows the numbers of the key.",
    "Use a complete key."};
constexpr Words noCommonName{
    "The name has no common name.", "openssl x509 -in FILE -noout -subject -issuer shows both names.",
    "Use the subject alternative names to identify a host."};
constexpr Words unreadField{
    "OpenSSL could not read a field of the certificate, or memory ran out.",
    "Call it again while memory is free. openssl x509 -in FILE -noout -text reads all fields, too.",
    "Free memory and try again. If that does not help, the certificate is damaged."};
constexpr Words unreadDate{
    "A date cannot be read.", "openssl x509 -in FILE -noout -dates shows the dates.",
    "Ask the issuer for a correct certificate or CRL."};
constexpr Words unreadIdentifier{
    "An object identifier cannot be read.", "openssl asn1parse -in FILE shows each object identifier.",
    "Ask the issuer for a correct certificate."};
constexpr Words emptyCertificate{
    "The certificate to add is empty.", "Call empty() on the certificate before you add it.",
    "Add a certificate that was loaded."};
constexpr Words damagedRoot{
    "One of the operating system's roots is damaged.",
    "The rest of the text names the file or the size. openssl storeutl -noout -certs FILE reads all of a "
    "file.",
    "Repair the system's roots, or do not ask to throw for single certificates."};
constexpr Words failedOpenSSL{
    "OpenSSL failed, most often because memory ran out.", lookAtMemory, "Free memory and try again."};

// docs/errors.md shows this table. A test compares them.
constexpr BeginningWords table[] = {
    {"Error: X509Certificate is uninitialized.", movedFrom},
    {"Error: X509CertificateChain is uninitialized.", movedFrom},
    {"Error: PKCS7Certificate is uninitialized.", movedFrom},
    {"Error: PKCS12Certificate is uninitialized.", movedFrom},
    {"Error: TrustStore is uninitialized.", movedFrom},
    {"Error: X509Certificate has no content.",
     {"The certificate is empty.", "Call empty() on the certificate.",
      "Load a certificate before you ask for its fields."}},
    {"The input certificate has no content.", nothingToLoad},
    {"The provided certificate chain string has no content.", nothingToLoad},
    {"The provided PKCS7 certificate has no content.", nothingToLoad},
    {"The provided PKCS12 certificate bytearray has no content.", nothingToLoad},
    {"The input certificate data stream is invalid.", unreadInput},
    {"The input certificate data string is invalid.", unreadInput},
    {"The input certificate chain data stream is invalid.", unreadInput},
    {"The input X509 certificate chain data stream is invalid.", unreadInput},
    {"The input PKCS7 certificate data stream is invalid.", unreadInput},
    {"The input PKCS7 certificate data string is invalid.", unreadInput},
    {"The input PKCS12 certificate data stream is invalid.", unreadInput},
    {"Input certificate data was autodetected to be",
     {"The input is not a certificate or signed data in the form that it seems to have.",
      "PEM has a BEGIN line and an END line. openssl asn1parse -in FILE shows what the file holds.",
      "Check that this is the right file and that it is complete."}},
    {"Error: Loading a certificate failed.",
     {"The input is damaged.", "openssl x509 -in FILE -noout -text fails as well.",
      "Get the file again from its source."}},
    {"Error: Loading a certificate chain failed.",
     {"The text is damaged or holds no certificate.",
      "The file has as many BEGIN CERTIFICATE lines as END CERTIFICATE lines.",
      "Check that the file holds complete certificates in PEM form."}},
    {"Error: Unable to parse X509 certificate inside X509 certificate chain.",
     {"One certificate of the chain could not be loaded.",
      "The toolkit's CertificateReader reads the file and names each certificate.",
      "Remove or replace that certificate. The rest of the text says what is wrong with it."}},
    {"Error: Unable to parse X509 certificate(s) inside PKCS7 certificate.",
     {"A certificate in the signed data could not be loaded.",
      "openssl pkcs7 -in FILE -noout -print_certs -text shows the certificates and their keys.",
      "Ask the signer for data with supported certificates, or use the toolkit's Certificate."}},
    {"Error: Unable to parse X509 certificate(s) inside PKCS12 certificate.",
     {"A certificate in the bundle could not be loaded.",
      "openssl pkcs12 -in FILE -nokeys shows the certificates.",
      "Make a bundle with supported certificates. The rest of the text says what is wrong."}},
    {"Unsupported elliptic curve in X509 Certificate in PKCS12:",
     {"A certificate in the bundle has a key on a curve that the library does not support.",
      "openssl pkcs12 -in FILE -nokeys shows the certificates.", "Use a certificate with a supported key."}},
    {"Internal error: The given certificate data could not be written to a buffer.", largeInput},
    {"Internal error: The given input data bytes could not be written to a buffer.", largeInput},
    {"RSA key size does not meet minimum cryptographic requirements",
     {"The RSA key has fewer than 1024 bits.",
      "openssl x509 -in FILE -noout -text shows the size of the key.", "Use a key of at least 2048 bits."}},
    {"ECC-based key is not using supported ECC Curve.",
     {"The key is on a curve that this class does not support.", "The rest of the text names the curve.",
      "Use the toolkit's Certificate, which takes any key."}},
    {"Key uses Ed448, which is not currently supported", unsupportedKey},
    {"Key is not currently supported.", unsupportedKey},
    {"Failed to sanity check EVP_PKEY.",
     {"The public key cannot be read.", "openssl x509 -in FILE -noout -pubkey fails as well.",
      "Ask the issuer for a certificate with a correct key."}},
    {"Could not extract public key information from EVP_PKEY",
     {"The key has no usable numbers, or memory ran out.",
      "openssl x509 -in FILE -noout -text shows the numbers of the key.",
      "Use a certificate with a correct key, or free memory and try again."}},
    {"Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC",
     {"The key's curve has no name.",
      "openssl x509 -in FILE -noout -text shows an ASN1 OID if the curve has a name.",
      "Use a key on a named curve."}},
    {"Empty modulus in public key", emptyNumber},
    {"Empty public exponent in public key", emptyNumber},
    {"Empty public point in public key", emptyNumber},
    {"Empty private exponent in private key.", emptyNumber},
    {"Empty private integer in private key.", emptyNumber},
    {"Subject name has no CN.", noCommonName},
    {"Issuer name has no CN.", noCommonName},
    {"Cannot get the",
     {"This kind of key does not have that number.",
      "openssl x509 -in FILE -noout -text shows the kind of the key.", "Ask for the key's type first."}},
    {"Internal error: Unable to get serial number", unreadField},
    {"Internal error: Unable to compute the SHA256 fingerprint.", unreadField},
    {"Internal error: Unable to fetch the signature algorithm", unreadField},
    {"Error: Could not get the ASN1 time in string format.", unreadField},
    {"Internal error: Could not serialize the X509 certificate.", unreadField},
    {"Internal error: The DER serialized X509 data came up empty.", unreadField},
    {"Error: Certificate does not have validNot",
     {"The certificate has an unreadable date.", "openssl x509 -in FILE -noout -dates shows the dates.",
      "Ask the issuer for a correct certificate."}},
    {"Error: printing the ASN1 time failed.", unreadDate},
    {"Invalid time format used in the certificate.", unreadDate},
    {"OID has invalid length:", unreadIdentifier},
    {"Could not convert OID into text.", unreadIdentifier},
    {"The provided certificate has no content.", emptyCertificate},
    {"Input certificate is empty.", emptyCertificate},
    {"X509CertificateChain has no content.",
     {"The chain is empty.", "Call empty() on the chain, also after each certificate that you take out.",
      "Add certificates to the chain first."}},
    {"Unable to find a leaf certificate in the given certificate chain",
     {"All certificates of the chain are CAs.",
      "openssl x509 -in FILE -noout -ext basicConstraints shows CA:TRUE for each of them.",
      "Add the end-entity certificate to the chain."}},
    {"Failed to open system certificate store:",
     {"The operating system's roots were not found.",
      "See whether one of the locations in the text exists, and what SSL_CERT_FILE and SSL_CERT_DIR say.",
      "Install the package of root certificates, or set SSL_CERT_FILE."}},
    {"Failed to parse DER data to X509 certificate.", damagedRoot},
    {"Unusable PEM block in", damagedRoot},
    {"Failed to read X509_STORE",
     {"The trust store could not be read because memory ran out.", lookAtMemory,
      "Free memory and try again."}},
    {"Failed to read",
     {"A file or folder of roots could not be read.",
      "Look at the permissions of the path, and at the number of files that the process may open.",
      "Check that it exists and that this process may read it."}},
    {"Failed to create X509_STORE", failedOpenSSL},
    {"Failed to add CRL to store", failedOpenSSL},
    {"Failed to add certificate to store", failedOpenSSL},
    {"Failed to convert X509 to PEM", failedOpenSSL},
    {"Failed to get PEM data from buffer", failedOpenSSL},
    {"Null X509 certificate found in TrustStore", failedOpenSSL},
    {"Internal Error: error creating X509_STORE_CTX object", failedOpenSSL},
    {"Failed to set the flags to", failedOpenSSL},
    {"Failed to get the", failedOpenSSL},
    {"Failed to extract", failedOpenSSL},
    {"Could not find 'pub' in parameter list", failedOpenSSL},
    {"Could not find 'priv' in parameter list", failedOpenSSL},
    {"Failed to initialize BIGNUM with private integer data.", failedOpenSSL},
    {"Unable to write out", failedOpenSSL},
    {"Internal error: Unable to read the certificate's", failedOpenSSL},
    {"Internal error: The PKCS7 structure could not be copied.", failedOpenSSL},
    {"Unsupported object type found in TrustStore",
     {"The trust store holds a CRL, which is no certificate.",
      "Look for code that adds a CRL to the store of getOpenSSLStore.",
      "Ask for the certificates of a trust store without CRLs."}},
    {"Error: Root CA X509Certificate has no content.",
     {"No chain from the certificate to a root verifies.",
      "validateCertificate with the same chain says what is wrong.",
      "Add the missing intermediates, or validate the certificate to see what is wrong."}},
    {"Internal error:",
     {"The operation needs something that this system or OpenSSL did not give.", lookAtMemory,
      "Read the rest of the text, which names the cause."}},
    {"Invalid certificate chain length.",
     {"OpenSSL could not finish the verification.",
      "Validate again while memory is free: a damaged chain fails each time.",
      "Free memory and try again. If that does not help, the chain is damaged."}},
    {"CRL Download Error: Failed to retrieve Root CA certificate",
     {"The issuer of a certificate was not found, so no CRL can be checked.",
      "Print the chain: the issuer of each certificate has to be the subject of the next one.",
      "Pass a chain that ends in its root."}},
    {"CRL Download Error: Certificate Revocation List Distribution Points not available",
     {"The certificate names no place for its CRL.",
      "openssl x509 -in FILE -noout -ext crlDistributionPoints shows the addresses.",
      "Do not require CRLs for this certificate, or get one that names its CRL."}},
    {"CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points",
     {"The certificate names no CRL with an http:// address.",
      "openssl x509 -in FILE -noout -ext crlDistributionPoints shows the addresses.",
      "Do not require CRLs for this certificate, or pass its CRL to PathValidator."}},
    {"CRL Download Error: Unable to get Certificate Revocation List HTTP data.",
     {"The CRL could not be downloaded.", "Fetch the address with another program on the same machine.",
      "Check the network and the CA's server, and try again."}},
    {"CRL Download Error: Invalid Certificate Revocation List",
     {"The server's answer is no CRL.",
      "Fetch the address with another program. openssl crl -in FILE -noout -text has to read the answer.",
      "Ask the CA to repair its server, and check for a proxy in between."}},
    {"CRL Download Error: Certificate Revocation List (CRL) download failed at level:",
     {"OpenSSL did not accept the CRL.", lookAtMemory, "Free memory and try again."}},
    {"CRL Verification Error: Failed to verify the Certificate Revocation List signature",
     {"The CRL is not signed by the certificate's issuer.",
      "Fetch the CRL. openssl crl -in FILE -noout -CAfile ISSUER verifies its signature.",
      "Check the order of the chain, and ask the CA for a correct CRL."}},
    {"CRL Verification Error: Failed to retrieve the next update date",
     {"The CRL does not say when the next one comes.",
      "Fetch the CRL. openssl crl -in FILE -noout -nextupdate shows the date.",
      "Ask the CA for a correct CRL."}},
    {"CRL Verification Error: Certificate Revocation List has expired",
     {"The CRL has expired.", "Fetch the CRL. openssl crl -in FILE -noout -nextupdate shows the date.",
      "Ask the CA for a current CRL, and check the clock of this system."}},
    {"Input PKCS7 certificate is corrupt.",
     {"The input is PKCS#7 and holds no signed data.",
      "openssl asn1parse -in FILE shows pkcs7-signedData in its second line.",
      "Check that this is a signature, and not encrypted data."}},
    {"PKCS7Certificate has no content.",
     {"No signed data was loaded.", "Call empty() on the object.", "Load signed data first."}},
    {"Error: Loading PKSC12 certificate failed.",
     {"The input is no PKCS#12 bundle, or is damaged.",
      "openssl pkcs12 -in FILE -info -noout has to read it. A file with a BEGIN line is no bundle.",
      "Check that this is the right file. There is no PEM form."}},
    {"Input passphrase is incorrect.",
     {"The passphrase does not open the bundle.",
      "openssl pkcs12 -in FILE -info -noout asks for the passphrase and says whether it fits.",
      "Try another passphrase. A bundle without a MAC never opens."}},
    {"Error: Loading legacy provider failed.",
     {"OpenSSL's legacy provider is missing, which old bundles need.",
      "openssl list -providers -provider legacy fails as well.",
      "Install the provider: on some systems it is a package of its own."}},
    {"Error: Parsing PKSC12 certificate failed.",
     {"The bundle could not be decrypted.",
      "openssl pkcs12 -in FILE -info -noout says what it cannot decrypt.",
      "Make the bundle again, with a passphrase without a NUL character."}},
    {"Error: Unable to read private key from PKCS12 certificate.",
     {"The private key in the bundle cannot be read.",
      "openssl pkcs12 -in FILE -nocerts has to read the key.", "Make the bundle again."}},
    {"Certificate validity period must be within the range of",
     {"The validity is too short or too long.", "Print the number of days that you pass.",
      "Choose 1 to 397 days."}},
    {"Failed to generate a certificate:",
     {"OpenSSL refused a setting of the new certificate.",
      "The rest of the text is OpenSSL's reason. Print the names and usages that you pass.",
      "Check names and usages: a common name must not contain a comma, a line end or a NUL."}},
    {"Input string is invalid for hex decoding.",
     {"The text is not hexadecimal: its length is odd.", "Print the length of the text: it has to be even.",
      "Check that the text is complete."}},
    {"Input string contains characters which are not in Hex.",
     {"The text is not hexadecimal.",
      "Look for characters other than 0 to 9, a to f and A to F, such as blanks and colons.",
      "Check that this is the right text."}},
    {"attempt to decode a value not in base64 char set",
     {"The text is not base64.",
      "Look for characters other than letters, digits, plus, slash and the equals sign.",
      "Check that this is the right text."}},
};

} // namespace

std::optional<Words> wordsForFailure(std::string_view text)
{
    BeginningWords const* found = nullptr;
    for (auto const& row : table) {
        bool const fits = text.substr(0, row.beginning.size()) == row.beginning;
        if (fits && (found == nullptr || row.beginning.size() > found->beginning.size())) {
            found = &row;
        }
    }
    return found == nullptr ? std::nullopt : std::optional<Words>(found->words);
}

} // namespace foundation::toolkit
