# The deployment values as INFO_…, for the information property lists, which are XML.
foreach(
  value
  BUNDLE_IDENTIFIER
  DISPLAY_NAME
  API_HOST
  WEB_HOST
  FIREBASE_API_KEY
  IDENTITY_TOOLKIT_URL
  SECURE_TOKEN_URL
  TLS_EXTRA_CA
  UPDATE_FEED_URL
  UPDATE_PUBLIC_KEY)
  string(REPLACE "&" "&amp;" INFO_${value} "${ORVEL_${value}}")
  string(REPLACE "<" "&lt;" INFO_${value} "${INFO_${value}}")
  string(REPLACE ">" "&gt;" INFO_${value} "${INFO_${value}}")
endforeach()
